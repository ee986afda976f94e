#pragma once

// Errors, time, threads, events, locks, thread-local slots, files, modules, versions, profile files
// and strings.

#include <atomic>

#include "win32_types.h"

extern "C" {

// --- last error: one word per thread, shared with the sockets -----------------------------------

DWORD GetLastError();
void SetLastError(DWORD error);

// --- time ----------------------------------------------------------------------------------------

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

// Milliseconds of a steady clock in 32 bits: wraps after 49.7 days.
DWORD GetTickCount();
void Sleep(DWORD milliseconds);
void GetLocalTime(SYSTEMTIME* time);

// --- threads, events, waits ----------------------------------------------------------------------

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

struct SECURITY_ATTRIBUTES;
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID);

// Starts a thread at once. The handle is signalled when the thread has ended; closing it leaves the
// thread running. Null with the last error set when the system refuses. Stack size and flags must
// be 0, as the monitor asks.
HANDLE CreateThread(SECURITY_ATTRIBUTES* attributes, std::size_t stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID argument, DWORD flags, DWORD* threadId);
// Only unnamed events (name null). Null with the last error set on failure.
HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
// Threads and events. WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED for anything that is no such handle.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
// Threads, events and files. FALSE with ERROR_INVALID_HANDLE for null or INVALID_HANDLE_VALUE.
BOOL CloseHandle(HANDLE handle);
DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();

// --- critical sections: a lock that its holder may take again -------------------------------------

// Its fields are the layer's own.
struct CRITICAL_SECTION {
    std::atomic<int> state;    // 0 free, 1 held, 2 held and somebody may be waiting
    int depth;                 // how often its holder has taken it again
    std::atomic<void*> owner;  // names the holding thread
};
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);

// --- thread-local slots ----------------------------------------------------------------------------

constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;
DWORD TlsAlloc();
BOOL TlsFree(DWORD slot);
// Null in a thread that has stored nothing. Success sets the last error to 0, as on the platform.
LPVOID TlsGetValue(DWORD slot);
BOOL TlsSetValue(DWORD slot, LPVOID value);

// --- files -----------------------------------------------------------------------------------------

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD GENERIC_ALL = 0x10000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

// Opens a file by name; names use '/'. A new file gets the access that the security descriptor in
// `attributes` asks for (whole access for Everyone: mode 0666 whatever the umask), without one 0600;
// an existing file keeps its own. A file that another handle holds for writing without sharing
// that is refused with ERROR_SHARING_VIOLATION. A symbolic link in the last place is not followed.
HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE templateFile);
using LPOVERLAPPED = void*;  // always null
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, LPOVERLAPPED overlapped);
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);
// Cuts the file at the handle's position.
BOOL SetEndOfFile(HANDLE file);
DWORD GetFileSize(HANDLE file, DWORD* sizeHigh);
// The folder for temporary files with a closing slash: $TMPDIR, else /tmp. Gives the length without
// the NUL, or the size needed with it when `size` characters are too few.
DWORD GetTempPathW(DWORD size, LPWSTR buffer);

// --- modules ---------------------------------------------------------------------------------------

constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

using FARPROC = void (*)();

// Loads a shared library by file name, counted. "spoolss.dll" names the embedded spooler and
// "ws2_32.dll" the socket library, whatever the letter case; both lie beside this layer. A module
// handle is the address at which the library is loaded.
HMODULE LoadLibraryW(LPCWSTR name);
BOOL FreeLibrary(HMODULE module);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
// The executable for a null name (other names are not served: null, ERROR_MOD_NOT_FOUND).
HMODULE GetModuleHandleW(LPCWSTR name);
// Absolute path of a module's file. Too small a buffer gives `size`, a cut text without a NUL and
// ERROR_INSUFFICIENT_BUFFER.
DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
// There are no thread notifications here to switch off; TRUE for a loaded module.
BOOL DisableThreadLibraryCalls(HMODULE module);

// --- version ---------------------------------------------------------------------------------------

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

constexpr DWORD VER_MINORVERSION = 1;
constexpr DWORD VER_MAJORVERSION = 2;
constexpr BYTE VER_EQUAL = 1;

// Says 10.0.
BOOL GetVersionExW(OSVERSIONINFOW* version);
// VER_EQUAL on the major and minor version; FALSE with ERROR_OLD_WIN_VERSION when they differ.
BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask);
ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition);

// --- profile (.ini) files and strings --------------------------------------------------------------

// Reads one value of an .ini file in UTF-8, or UTF-16 with a byte order mark. Section and key ignore
// case; blanks around the value and one pair of quotes are dropped; a value that doesn't fit is cut.
// Gives the length without the NUL. Without file, section or key the default is copied.
DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                               LPCWSTR fileName);
void OutputDebugStringA(LPCSTR text);
int lstrlenW(LPCWSTR text);
// Compares without regard to case, beyond ASCII too.
int lstrcmpiW(LPCWSTR left, LPCWSTR right);
// Compares without regard to the case of ASCII letters (the C locale of the platform's own).
int _wcsicmp(LPCWSTR left, LPCWSTR right);
// Cuts a path into its pieces; each out buffer may be null. The platform's limits hold: 256 characters
// for folder, name and extension, NUL included.
void _wsplitpath(LPCWSTR path, LPWSTR drive, LPWSTR folder, LPWSTR name, LPWSTR extension);

}  // extern "C"
