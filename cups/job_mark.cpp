#include "cups/job_mark.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "cups/status_lines.h"
#include "spooler/spooler_error.h"

namespace farlink_cups {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 4> kWords{"clear", "in-doubt", "held", "through"};
constexpr std::chrono::milliseconds kLockPause{100};
// cupsd writes down a job's end within half a minute; after that it won't run the job again by itself.
constexpr std::chrono::hours kAgeOfThrough{1};
constexpr std::chrono::hours kAgeOfAny{24 * 365};

struct Line {
    JobMark::State state = JobMark::State::Clear;
    unsigned copies = 0;
    std::string life;
};

// The last line that is whole, if there is one.
std::optional<Line> LastLine(const std::string& path)
{
    std::optional<Line> last;
    std::ifstream file(path);
    std::string text;
    while (std::getline(file, text) && !file.eof()) {
        std::istringstream fields(text);
        std::string word;
        Line line{.state = JobMark::State::InDoubt, .copies = 0, .life = {}};  // unless it can be read
        fields >> word >> line.copies >> line.life;
        for (std::size_t i = 0; i < kWords.size(); ++i)
            if (word == kWords[i])
                line.state = static_cast<JobMark::State>(i);
        last = line;
    }
    return last;
}

[[noreturn]] void Fail(const std::string& path, int error)
{
    throw std::runtime_error("'" + path + "', without which a card could come out twice, can't be written: " +
                             std::strerror(error));
}

void SyncFolder(const fs::path& folder)
{
    const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = opened != -1 && fsync(opened) == 0;
    const int error = errno;
    if (opened != -1)
        close(opened);
    if (!synced)
        Fail(folder, error);
}

int OpenMark(const std::string& path, int flags)
{
    return open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | flags, 0600);
}

bool IsLinked(int file)
{
    struct stat facts;
    return fstat(file, &facts) == 0 && facts.st_nlink > 0;
}

bool IsNeeded(const fs::path& path, const std::string& life)
{
    const auto age = fs::file_time_type::clock::now() - fs::last_write_time(path);
    if (age <= kAgeOfThrough)
        return true;
    const std::optional<Line> line = LastLine(path);
    const bool heard = line && line->state == JobMark::State::Through && line->life == life;
    return !heard && age <= kAgeOfAny;
}

}  // namespace

JobMark::JobMark(const std::string& folder, const std::string& job, std::string life_, std::stop_token stop)
    : path(folder + '/' + job), life(std::move(life_))
{
    if (mkdir(folder.c_str(), 0700) == 0)
        SyncFolder(fs::path(folder).parent_path());
    try {
        Lock(stop);
        SyncFolder(folder);
        Interpret();
    } catch (...) {
        if (file != -1)
            close(file);
        throw;
    }
}

JobMark::~JobMark()
{
    if (state == State::Clear && copies == 0)
        unlink(path.c_str());
    close(file);
}

// The file may be taken away between its opening and the lock.
void JobMark::Lock(std::stop_token stop)
{
    while (file == -1 || !IsLinked(file)) {
        if (file != -1)
            close(file);
        file = OpenMark(path, O_CREAT);
        if (file == -1)
            Fail(path, errno);
        while (flock(file, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR)
                Fail(path, errno);
            if (stop.stop_requested())
                throw spooler::SpoolerError{ERROR_PRINT_CANCELLED, "stopped while an earlier run was ending"};
            if (!std::exchange(hadToWait, true))
                Info("Waiting until an earlier run of this job has ended");
            std::this_thread::sleep_for(kLockPause);
        }
    }
}

void JobMark::Interpret()
{
    const Line line = LastLine(path).value_or(Line{});
    state = found = line.state;
    copies = line.copies;
    isOfThisLife = line.life == life;
    const bool isAsked = !hadToWait && !life.empty() && isOfThisLife;
    if (isAsked && found != State::InDoubt)
        found = State::Clear;
    if (line.state == State::Through)
        copies = 0;
    if (found == State::Clear && state != State::Clear)
        Note(State::Clear);
}

void JobMark::Note(State next)
{
    std::string text(kWords[static_cast<std::size_t>(next)]);
    text += ' ' + std::to_string(copies) + ' ' + life + '\n';
    struct stat before;
    if (fstat(file, &before) != 0)
        Fail(path, errno);
    errno = ENOSPC;  // what a short write means
    if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || fdatasync(file) != 0) {
        const int error = errno;
        (void)!ftruncate(file, before.st_size);
        Fail(path, error);
    }
    state = next;
}

void JobMark::NotePrinted(bool last)
{
    ++copies;
    Note(last ? State::Through : State::Clear);
}

bool JobMark::IsThrough(const std::string& folder, const std::string& job)
{
    const std::optional<Line> line = LastLine(folder + '/' + job);
    return line && line->state == State::Through;
}

void JobMark::RemoveOld(const std::string& folder, const std::string& life)
try {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const int old = IsNeeded(entry.path(), life) ? -1 : OpenMark(entry.path(), 0);
        if (old == -1)
            continue;
        if (flock(old, LOCK_EX | LOCK_NB) == 0 && !IsNeeded(entry.path(), life))
            unlink(entry.path().c_str());
        close(old);
    }
} catch (const fs::filesystem_error&) {
}

}  // namespace farlink_cups
