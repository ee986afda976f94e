#include "spooler/port_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

struct flock ByteAt(std::int64_t offset, int type)
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = offset;
    range.l_len = 1;
    return range;
}

}  // namespace

PortLock::PortLock(const std::string& lockFile, std::int64_t portNumber)
    : file(open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)), port(portNumber)
{
    if (file < 0)
        ThrowErrno("The lock file " + lockFile + " can't be opened", errno);
}

PortLock::~PortLock()
{
    close(file);
}

bool PortLock::TryTake()
{
    struct flock range = ByteAt(port, F_WRLCK);
    return fcntl(file, F_OFD_SETLK, &range) == 0;
}

void PortLock::Release()
{
    struct flock range = ByteAt(port, F_UNLCK);
    (void)fcntl(file, F_OFD_SETLK, &range);  // unlocking what is open can't fail
}

}  // namespace spooler
