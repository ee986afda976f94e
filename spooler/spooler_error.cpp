#include "spooler/spooler_error.h"

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>

namespace spooler {

namespace {

thread_local std::string lastErrorText;

}  // namespace

void Throw(DWORD word, std::string text)
{
    throw SpoolerError{word, std::move(text)};
}

DWORD WordOfErrno(int error)
{
    switch (error) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case EIO:
            return ERROR_IO_DEVICE;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        default:
            return ERROR_GEN_FAILURE;
    }
}

void ThrowErrno(const std::string& what, int error)
{
    Throw(WordOfErrno(error), what + ": " + std::generic_category().message(error) + ".");
}

const std::string& LastErrorText()
{
    return lastErrorText;
}

void SetLastErrorText(std::string text)
{
    lastErrorText = std::move(text);
}

SpoolerError CurrentError()
{
    try {
        throw;
    } catch (const SpoolerError& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return {ERROR_NOT_ENOUGH_MEMORY, "Not enough memory."};
    } catch (const std::exception& error) {
        return {ERROR_GEN_FAILURE, error.what()};
    }
}

}  // namespace spooler
