#pragma once

#include <filesystem>

#include "platform/platform.h"

// What the support for tests needs of each system in its own way.

// The calls behind those that the test binary replaces.
HMODULE RealLoadLibraryW(LPCWSTR name);
FARPROC RealGetProcAddress(HMODULE module, LPCSTR name);
BOOL RealFreeLibrary(HMODULE module);
BOOL RealWriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, LPOVERLAPPED overlapped);

// Makes a library that was just loaded call what the test binary replaces, too.
void PutDoublesBefore(HMODULE library);

bool IsLoaded(const std::filesystem::path& library);

// The folder that GetTempPathW gives, without a closing slash; empty for what it was at first.
void SetTempFolder(const std::filesystem::path& folder);

// Whether everyone may use the file, as far as the system grants what its creator asks for.
bool IsOpenToEveryone(const std::filesystem::path& file);

// What stands in the last line of the log when the program's exit handlers run, a loaded library still
// attached.
extern const char* const kLastLineAtExit;

// The platform as it is at the start: no failing calls, real time, the true version.
void ResetPlatform();
