#include <atomic>

#include "platform/posix/call_switch.h"
#include "platform/posix/reported_version.h"

namespace {

constexpr DWORD kPlatformNt = 2;
constexpr std::uint64_t kNewest = std::uint64_t{10} << 32;
constexpr unsigned kConditionBits = 3;  // per version field in a condition mask
constexpr unsigned kMajorShift = kConditionBits;

std::atomic<std::uint64_t> reported{kNewest};  // major in the upper half, minor in the lower

DWORD Major()
{
    return static_cast<DWORD>(reported.load() >> 32);
}

DWORD Minor()
{
    return static_cast<DWORD>(reported.load());
}

}  // namespace

BOOL GetVersionExW(OSVERSIONINFOW* version)
{
    if (posix_layer::CallFails("GetVersionExW"))
        return FALSE;
    const DWORD size = version->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW) && size != sizeof(OSVERSIONINFOEXW)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (size == sizeof(OSVERSIONINFOEXW))
        *reinterpret_cast<OSVERSIONINFOEXW*>(version) = {};
    *version = {.dwOSVersionInfoSize = size,
                .dwMajorVersion = Major(),
                .dwMinorVersion = Minor(),
                .dwBuildNumber = 0,
                .dwPlatformId = kPlatformNt,
                .szCSDVersion = {}};
    return TRUE;
}

BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask)
{
    if (posix_layer::CallFails("VerifyVersionInfoW"))
        return FALSE;
    constexpr DWORDLONG kBothEqual = (DWORDLONG{VER_EQUAL} << kMajorShift) | VER_EQUAL;
    if (typeMask != (VER_MAJORVERSION | VER_MINORVERSION) || conditionMask != kBothEqual) {
        SetLastError(ERROR_BAD_ARGUMENTS);
        return FALSE;
    }
    if (version->dwMajorVersion == Major() && version->dwMinorVersion == Minor())
        return TRUE;
    SetLastError(ERROR_OLD_WIN_VERSION);
    return FALSE;
}

ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition)
{
    const unsigned shift = (typeMask & VER_MAJORVERSION) != 0 ? kMajorShift : 0;
    return conditionMask | (ULONGLONG{condition} << shift);
}

namespace posix_layer {

void SetReportedVersion(DWORD major, DWORD minor)
{
    reported = (std::uint64_t{major} << 32) | minor;
}

void ResetReportedVersion()
{
    reported = kNewest;
}

}  // namespace posix_layer
