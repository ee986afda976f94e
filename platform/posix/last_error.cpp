#include "platform/posix/last_error.h"

#include <cerrno>

#include "platform/posix/win32_inline.h"

namespace posix_layer {

DWORD ErrorFromErrno(int code)
{
    switch (code) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case EACCES:
        case EPERM:
        case EISDIR:
        case ELOOP:
        case ENXIO:
        case EROFS:
        case ETXTBSY:
            return ERROR_ACCESS_DENIED;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case ENOMEM:
        case EAGAIN:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case EBUSY:
            return ERROR_BUSY;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        default:
            return ERROR_GEN_FAILURE;
    }
}

void SetLastErrorFromErrno()
{
    SetLastError(ErrorFromErrno(errno));
}

}  // namespace posix_layer
