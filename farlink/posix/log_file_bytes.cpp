#include "farlink/log/log_file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "farlink/failure.h"

namespace farlink {

LogFileBytes::~LogFileBytes()
{
    if (file >= 0)
        close(file);
}

void LogFileBytes::Open()
{
    if (file >= 0)
        close(file);
    file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 && errno != ENOENT)
        throw Failure("The log file '" + path + "' can't be read: " + std::strerror(errno));
}

bool LogFileBytes::Exists()
{
    Open();
    return file >= 0;
}

std::uint64_t LogFileBytes::Size()
{
    Open();
    struct stat facts = {};
    if (file < 0 || fstat(file, &facts) != 0)
        return 0;
    if (!S_ISREG(facts.st_mode))
        throw Failure("'" + path + "' is no file");
    return static_cast<std::uint64_t>(facts.st_size);
}

std::string LogFileBytes::Read(std::uint64_t from, std::uint64_t to)
{
    std::string bytes(from < to && file >= 0 ? to - from : 0, '\0');
    std::size_t got = 0;
    while (got < bytes.size()) {
        const ssize_t part =
            pread(file, bytes.data() + got, bytes.size() - got, static_cast<off_t>(from + got));
        if (part < 0)
            throw Failure("The log file '" + path + "' can't be read: " + std::strerror(errno));
        if (part == 0)
            break;
        got += static_cast<std::size_t>(part);
    }
    bytes.resize(got);
    return bytes;
}

}  // namespace farlink
