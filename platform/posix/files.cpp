#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <optional>

#include "platform/platform.h"
#include "platform/posix/call_switch.h"
#include "platform/posix/file_access.h"
#include "platform/posix/handles.h"
#include "platform/posix/held_signal.h"
#include "platform/posix/last_error.h"

namespace {

bool ProcessHasFileSizeLimit()
{
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

class File : public posix_layer::KernelObject {
public:
    explicit File(int openDescriptor) : descriptor(openDescriptor), sizeIsLimited(ProcessHasFileSizeLimit())
    {
    }
    ~File() override
    {
        // A child that was forked and has not yet started its program shares the lock; taken off
        // here, it does not outlive this handle.
        flock(descriptor, LOCK_UN);
        close(descriptor);
    }
    const int descriptor;
    const bool sizeIsLimited;  // by the process's limits, as they were when the file was opened
};

bool Writes(DWORD access)
{
    return (access & (GENERIC_WRITE | GENERIC_ALL)) != 0;
}

int OpenFlags(DWORD access)
{
    const bool reads = (access & (GENERIC_READ | GENERIC_ALL)) != 0;
    const int direction = Writes(access) ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
    // O_NONBLOCK: a planted pipe must not hang the opening before it is seen to be no file.
    return direction | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
}

// Opens or makes the file; -1 with errno. A new file gets its mode past the umask.
int OpenOrCreate(const char* name, int flags, mode_t mode)
{
    for (int attempt = 0; attempt < 10; ++attempt) {
        const int made = open(name, flags | O_CREAT | O_EXCL, mode);
        if (made >= 0) {
            fchmod(made, mode);
            return made;
        }
        if (errno != EEXIST)
            return -1;
        const int opened = open(name, flags);
        if (opened >= 0 || errno != ENOENT)
            return opened;  // ENOENT: it was deleted in between
    }
    return -1;
}

// A regular file, and for a writer one that has no second name: that might be planted for a file of another
// folder.
bool IsFit(int descriptor, bool writes)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && (!writes || status.st_nlink <= 1);
}

// Writers keep each other out with a lock of the whole file; readers take none. A file system that
// has no locks is no reason to go without the file.
bool MayShare(int descriptor, DWORD access, DWORD share)
{
    if (!Writes(access))
        return true;
    const int lock = (share & FILE_SHARE_WRITE) != 0 ? LOCK_SH : LOCK_EX;
    return flock(descriptor, lock | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// The error word for what a fresh descriptor can't be used for; 0 when it can.
DWORD Unfitness(int descriptor, DWORD access, DWORD share, DWORD disposition)
{
    if (!IsFit(descriptor, Writes(access)))
        return ERROR_ACCESS_DENIED;
    if (!MayShare(descriptor, access, share))
        return ERROR_SHARING_VIOLATION;
    if (disposition == CREATE_ALWAYS && ftruncate(descriptor, 0) != 0)
        return posix_layer::ErrorFromErrno(errno);
    return ERROR_SUCCESS;
}

HANDLE Open(const std::string& name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
            DWORD disposition)
{
    const int flags = OpenFlags(access);
    const int descriptor = disposition == OPEN_EXISTING
                               ? open(name.c_str(), flags)
                               : OpenOrCreate(name.c_str(), flags, posix_layer::ModeOfNewFile(attributes));
    if (descriptor < 0) {
        // Where the file would have been made, what isn't found is its folder.
        const bool folderMissing = errno == ENOENT && disposition != OPEN_EXISTING;
        SetLastError(folderMissing ? ERROR_PATH_NOT_FOUND : posix_layer::ErrorFromErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    if (const DWORD error = Unfitness(descriptor, access, share, disposition); error != ERROR_SUCCESS) {
        close(descriptor);
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return posix_layer::AddHandle(std::make_shared<File>(descriptor));
}

// lseek's name for an origin; -1 for anything else.
int Origin(DWORD method)
{
    switch (method) {
        case FILE_BEGIN:
            return SEEK_SET;
        case FILE_CURRENT:
            return SEEK_CUR;
        case FILE_END:
            return SEEK_END;
        default:
            return -1;
    }
}

// The two halves of a size or position. A low half that looks like the failure value is told from it
// by a last error of 0.
DWORD Split(off_t value, DWORD* high)
{
    if (high != nullptr)
        *high = static_cast<DWORD>(value >> 32);
    const auto low = static_cast<DWORD>(value);
    if (low == INVALID_SET_FILE_POINTER)
        SetLastError(ERROR_SUCCESS);
    return low;
}

DWORD SeekFailed(DWORD error)
{
    SetLastError(error);
    return INVALID_SET_FILE_POINTER;
}

// A write that fails half way leaves nothing of itself: what it stored at the file's end is cut off again,
// and the next write begins where it began.
void TakeBack(int descriptor, DWORD done)
{
    const off_t end = lseek(descriptor, 0, SEEK_CUR);
    const off_t start = lseek(descriptor, -off_t{done}, SEEK_CUR);
    struct stat status {};
    if (start >= 0 && fstat(descriptor, &status) == 0 && status.st_size == end)
        (void)!ftruncate(descriptor, start);
}

}  // namespace

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD, HANDLE)
{
    return posix_layer::GuardedCall("CreateFileW", INVALID_HANDLE_VALUE, [&]() -> HANDLE {
        if (disposition != CREATE_ALWAYS && disposition != OPEN_EXISTING && disposition != OPEN_ALWAYS) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return INVALID_HANDLE_VALUE;
        }
        if (name == nullptr || *name == 0) {
            SetLastError(ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        return Open(ToUtf8(name), access, share, attributes, disposition);
    });
}

BOOL WriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, void*)
{
    if (written != nullptr)
        *written = 0;
    if (posix_layer::CallFails("WriteFile"))
        return FALSE;
    const auto object = posix_layer::Find<File>(file);
    if (!object)
        return FALSE;
    // A file at the process's limit of size must not end the process. Without a limit there is no signal.
    std::optional<posix_layer::HeldSignal> held;
    if (object->sizeIsLimited)
        held.emplace(SIGXFSZ);
    for (DWORD done = 0; done < size;) {
        const ssize_t now = write(object->descriptor, static_cast<const char*>(data) + done, size - done);
        if (now < 0 && errno == EINTR)
            continue;
        if (now < 0) {
            if (held)
                held->TakeOff();
            // The descriptor is good: EBADF tells of a handle opened without the right to write.
            SetLastError(errno == EBADF ? ERROR_ACCESS_DENIED : posix_layer::ErrorFromErrno(errno));
            TakeBack(object->descriptor, done);
            return FALSE;
        }
        done += static_cast<DWORD>(now);
    }
    if (written != nullptr)
        *written = size;
    return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method)
{
    if (posix_layer::CallFails("SetFilePointer"))
        return INVALID_SET_FILE_POINTER;
    const auto object = posix_layer::Find<File>(file);
    if (!object)
        return INVALID_SET_FILE_POINTER;
    const int origin = Origin(method);
    if (origin < 0)
        return SeekFailed(ERROR_INVALID_PARAMETER);
    off_t move = distance;
    off_t before = 0;
    if (distanceHigh != nullptr)
        move = (off_t{*distanceHigh} << 32) | static_cast<DWORD>(distance);
    else
        before = lseek(object->descriptor, 0, SEEK_CUR);
    const off_t target = lseek(object->descriptor, move, origin);
    if (target < 0)  // the descriptor and the origin are good
        return SeekFailed(ERROR_NEGATIVE_SEEK);
    if (distanceHigh == nullptr && target > std::numeric_limits<DWORD>::max()) {
        lseek(object->descriptor, before, SEEK_SET);
        return SeekFailed(ERROR_INVALID_PARAMETER);
    }
    DWORD high = 0;
    const DWORD low = Split(target, &high);
    if (distanceHigh != nullptr)
        *distanceHigh = static_cast<LONG>(high);
    return low;
}

BOOL SetEndOfFile(HANDLE file)
{
    if (posix_layer::CallFails("SetEndOfFile"))
        return FALSE;
    const auto object = posix_layer::Find<File>(file);
    if (!object)
        return FALSE;
    if (ftruncate(object->descriptor, lseek(object->descriptor, 0, SEEK_CUR)) == 0)
        return TRUE;
    // EINVAL: the handle was opened without the right to write.
    SetLastError(errno == EINVAL ? ERROR_ACCESS_DENIED : posix_layer::ErrorFromErrno(errno));
    return FALSE;
}

DWORD GetFileSize(HANDLE file, DWORD* sizeHigh)
{
    if (posix_layer::CallFails("GetFileSize"))
        return INVALID_FILE_SIZE;
    const auto object = posix_layer::Find<File>(file);
    if (!object)
        return INVALID_FILE_SIZE;
    struct stat status {};
    if (fstat(object->descriptor, &status) != 0) {
        posix_layer::SetLastErrorFromErrno();
        return INVALID_FILE_SIZE;
    }
    return Split(status.st_size, sizeHigh);
}

DWORD GetTempPathW(DWORD size, LPWSTR buffer)
{
    return posix_layer::GuardedCall("GetTempPathW", DWORD{0}, [&]() -> DWORD {
        const char* configured = std::getenv("TMPDIR");
        std::u16string folder = ToUtf16(configured != nullptr && *configured != 0 ? configured : "/tmp");
        if (folder.back() != u'/')
            folder += u'/';
        if (folder.size() >= size)
            return static_cast<DWORD>(folder.size() + 1);
        folder.copy(buffer, folder.size());
        buffer[folder.size()] = 0;
        return static_cast<DWORD>(folder.size());
    });
}
