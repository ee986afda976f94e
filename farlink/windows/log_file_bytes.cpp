#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "farlink/failure.h"
#include "farlink/file_path.h"
#include "farlink/log/log_file_bytes.h"

namespace farlink {

namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 20;

}  // namespace

LogFileBytes::~LogFileBytes()
{
    if (file >= 0)
        _close(file);
}

void LogFileBytes::Open()
{
    if (file >= 0)
        _close(file);
    file = _wsopen(PathOf(path).c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT, _SH_DENYNO);
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
    struct _stat64 facts = {};
    if (file < 0 || _fstat64(file, &facts) != 0)
        return 0;
    if ((facts.st_mode & _S_IFMT) != _S_IFREG)
        throw Failure("'" + path + "' is no file");
    return static_cast<std::uint64_t>(facts.st_size);
}

std::string LogFileBytes::Read(std::uint64_t from, std::uint64_t to)
{
    std::string bytes(from < to && file >= 0 ? to - from : 0, '\0');
    std::size_t got = 0;
    while (got < bytes.size()) {
        const auto wanted = static_cast<unsigned>(std::min(bytes.size() - got, kMostAtOnce));
        int part = -1;
        if (_lseeki64(file, static_cast<long long>(from + got), SEEK_SET) >= 0)
            part = _read(file, bytes.data() + got, wanted);
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
