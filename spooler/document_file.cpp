#include "spooler/document_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr const char* kCantKeep = "The document can't be kept in the state folder";

void SyncFolderOf(const std::string& path)
{
    const std::string folder = path.substr(0, path.rfind('/'));
    const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0)
        ThrowErrno(kCantKeep, errno);
    const int error = fsync(handle) == 0 ? 0 : errno;
    close(handle);
    if (error != 0)
        ThrowErrno(kCantKeep, error);
}

// A process that died before its job's row was kept may have left a file of this name.
int MakeAnew(const std::string& path)
{
    (void)unlink(path.c_str());
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
}

}  // namespace

DocumentWriter::DocumentWriter(std::string name) : path(std::move(name)), file(MakeAnew(path))
{
    if (file < 0)
        ThrowErrno(kCantKeep, errno);
    (void)flock(file, LOCK_EX | LOCK_NB);  // the file is new: nobody else can have it
}

DocumentWriter::~DocumentWriter()
{
    close(file);
}

void DocumentWriter::Write(std::span<const BYTE> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            ThrowErrno(kCantKeep, errno);
        size += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

void DocumentWriter::Finish()
{
    if (fsync(file) != 0)
        ThrowErrno(kCantKeep, errno);
    SyncFolderOf(path);
}

DocumentReader::DocumentReader(const std::string& path)
    : file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW))
{
    if (file < 0)
        ThrowErrno("The job's document " + path + " can't be read", errno);
}

DocumentReader::~DocumentReader()
{
    close(file);
}

std::size_t DocumentReader::Read(std::span<BYTE> buffer)
{
    for (;;) {
        const ssize_t got = read(file, buffer.data(), buffer.size());
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno != EINTR)
            ThrowErrno("The job's document can't be read", errno);
    }
}

bool IsAbandoned(const std::string& path)
{
    const int handle = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (handle < 0)
        return true;
    const bool free = flock(handle, LOCK_EX | LOCK_NB) == 0;
    close(handle);
    return free;
}

void RemoveDocument(const std::string& path)
{
    (void)unlink(path.c_str());  // one that is left behind is swept up at the next start
}

}  // namespace spooler
