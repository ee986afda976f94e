#pragma once

#include "platform/platform.h"

// What the support for tests needs of each system in its own way.

// The calls behind those that the test binary replaces.
HMODULE RealLoadLibraryW(LPCWSTR name);
FARPROC RealGetProcAddress(HMODULE module, LPCSTR name);
BOOL RealFreeLibrary(HMODULE module);
BOOL RealWriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, void* overlapped);

// The platform as it is at the start: no failing calls, real time, the true version.
void ResetPlatform();
