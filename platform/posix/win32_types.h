#pragma once

// Basic types. WCHAR is UTF-16 on every system, so that record offsets and byte counts are equal on
// both builds.

#include <cstddef>
#include <cstdint>

#define TEXT(literal) u##literal

#define WINAPI
#define CALLBACK

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using SHORT = std::int16_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using CHAR = char;
using WCHAR = char16_t;
using HANDLE = void*;
using HMODULE = void*;
using HINSTANCE = void*;
using HLOCAL = void*;
using HKEYMONITOR = HANDLE;
using ACCESS_MASK = DWORD;
using REGSAM = ACCESS_MASK;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PHANDLE = HANDLE*;
using LPHANDLE = HANDLE*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// INVALID_HANDLE_VALUE is what a failed CreateFileW gives; other calls give null.
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)))

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_PRINT_CANCELLED = 63;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_LEVEL = 124;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD ERROR_BAD_ARGUMENTS = 160;
constexpr DWORD ERROR_BUSY = 170;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_KEY_DELETED = 1018;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_OLD_WIN_VERSION = 1150;
constexpr DWORD ERROR_UNKNOWN_REVISION = 1305;
constexpr DWORD ERROR_INVALID_SID = 1337;
constexpr DWORD ERROR_REVISION_MISMATCH = 1306;
constexpr DWORD ERROR_FILE_CORRUPT = 1392;
constexpr DWORD ERROR_TIMEOUT = 1460;
constexpr DWORD RPC_X_NULL_REF_POINTER = 1780;
constexpr DWORD ERROR_UNKNOWN_PORT = 1796;
constexpr DWORD ERROR_INVALID_PRINTER_NAME = 1801;
constexpr DWORD ERROR_PRINTER_ALREADY_EXISTS = 1802;
constexpr DWORD ERROR_INVALID_DATATYPE = 1804;
constexpr DWORD ERROR_INVALID_PRINTER_STATE = 1906;
constexpr DWORD ERROR_UNKNOWN_PRINT_MONITOR = 3000;
constexpr DWORD ERROR_SPL_NO_STARTDOC = 3003;
constexpr DWORD ERROR_PRINT_MONITOR_ALREADY_INSTALLED = 3006;
constexpr DWORD ERROR_PRINTER_HAS_JOBS_QUEUED = 3009;
