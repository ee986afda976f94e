#include "spooler/document.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <vector>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

class Descriptor {
public:
    explicit Descriptor(int opened) : raw(opened) {}
    ~Descriptor()
    {
        if (raw >= 0)
            close(raw);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return raw; }

private:
    const int raw;
};

[[noreturn]] void ThrowUnreadable(const std::string& name, int error)
{
    ThrowErrno("'" + name + "' can't be read", error);
}

struct stat StateOf(int file, const std::string& name)
{
    struct stat found = {};
    if (fstat(file, &found) != 0)
        ThrowUnreadable(name, errno);
    return found;
}

std::int64_t TimeOfChange(const struct stat& state)
{
    return state.st_mtim.tv_sec * 1000000000LL + state.st_mtim.tv_nsec;
}

// A file without a name goes with its last user, however that ends.
int OpenUnnamed()
{
    const char* chosen = std::getenv("TMPDIR");
    const std::string folder = chosen != nullptr && *chosen != 0 ? chosen : "/var/tmp";
    if (const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); file >= 0)
        return file;
    std::string name = folder + "/farlink_XXXXXX";  // not every file system has files without a name
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0)
        ThrowErrno("The document can't be kept in " + folder + " while it prints", errno);
    (void)unlink(name.c_str());
    return file;
}

void WriteAll(int file, std::span<const BYTE> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            ThrowErrno("The document can't be kept while it prints", errno);
    }
}

// Waits for input that doesn't come as a file: a FIFO may have no writer yet.
class Input {
public:
    Input(int descriptor, const std::string& inputName, std::stop_token token)
        : source(descriptor),
          name(inputName),
          stop(std::move(token)),
          stopped(eventfd(0, EFD_CLOEXEC)),
          wake(stop, [this] { (void)eventfd_write(stopped.Get(), 1); })
    {
        if (stopped.Get() < 0)
            ThrowUnreadable(name, errno);
    }

    // 0 at the end.
    std::size_t Read(std::span<BYTE> buffer)
    {
        for (;;) {
            Await();
            const ssize_t got = read(source, buffer.data(), buffer.size());
            if (got >= 0)
                return static_cast<std::size_t>(got);
            if (errno != EINTR && errno != EAGAIN)
                ThrowUnreadable(name, errno);
        }
    }

private:
    void Await()
    {
        pollfd ends[] = {{source, POLLIN, 0}, {stopped.Get(), POLLIN, 0}};
        const int ready = poll(ends, 2, -1);
        if (ready < 0 && errno != EINTR)
            ThrowUnreadable(name, errno);
        if (stop.stop_requested())
            Throw(ERROR_PRINT_CANCELLED, "'" + name + "' was cancelled before all of it was taken in");
    }

    const int source;
    const std::string& name;
    const std::stop_token stop;
    const Descriptor stopped;
    std::stop_callback<std::function<void()>> wake;
};

int TakeIn(int descriptor, const std::string& name, std::stop_token stop)
{
    Input input(descriptor, name, std::move(stop));
    const int file = OpenUnnamed();
    try {
        std::vector<BYTE> buffer(kBufferSize);
        while (const std::size_t size = input.Read(buffer))
            WriteAll(file, std::span(buffer).first(size));
        return file;
    } catch (...) {
        close(file);
        throw;
    }
}

}  // namespace

std::unique_ptr<Document> Document::OpenFile(const std::string& path, std::stop_token stop)
{
    const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (opened.Get() < 0)
        ThrowUnreadable(path, errno);
    return OpenDescriptor(opened.Get(), path, std::move(stop));
}

std::unique_ptr<Document> Document::OpenDescriptor(int descriptor, const std::string& name,
                                                   std::stop_token stop)
{
    const struct stat state = StateOf(descriptor, name);
    if (S_ISDIR(state.st_mode))
        Throw(ERROR_INVALID_PARAMETER, "'" + name + "' is a folder; give the files in it");
    if (!S_ISREG(state.st_mode))
        return std::unique_ptr<Document>(new Document(TakeIn(descriptor, name, std::move(stop)), name, 0));
    const off_t begin = lseek(descriptor, 0, SEEK_CUR);
    const int file = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (begin < 0 || file < 0)
        ThrowUnreadable(name, errno);
    return std::unique_ptr<Document>(new Document(file, name, static_cast<std::uint64_t>(begin)));
}

Document::Document(int opened, std::string documentName, std::uint64_t from)
    : file(opened), name(std::move(documentName)), begin(from)
{
    try {
        const struct stat state = StateOf(file, name);
        end = static_cast<std::uint64_t>(state.st_size);
        changedAt = TimeOfChange(state);
        if (end <= begin)
            Throw(ERROR_INVALID_PARAMETER, "'" + name + "' is empty; nothing is printed");
    } catch (...) {
        close(file);
        throw;
    }
}

Document::~Document()
{
    close(file);
}

void Document::Read(std::uint64_t offset, std::span<BYTE> buffer) const
{
    while (!buffer.empty()) {
        const ssize_t got = pread(file, buffer.data(), buffer.size(), static_cast<off_t>(begin + offset));
        if (got == 0)
            Throw(ERROR_FILE_CORRUPT, "'" + name + "' became shorter while it was printed");
        if (got < 0 && errno != EINTR)
            ThrowUnreadable(name, errno);
        if (got > 0) {
            offset += static_cast<std::uint64_t>(got);
            buffer = buffer.subspan(static_cast<std::size_t>(got));
        }
    }
}

void Document::RequireUnchanged() const
{
    const struct stat state = StateOf(file, name);
    if (static_cast<std::uint64_t>(state.st_size) != end || TimeOfChange(state) != changedAt)
        Throw(ERROR_FILE_CORRUPT, "'" + name + "' was changed while it was printed");
}

}  // namespace spooler
