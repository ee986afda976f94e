#pragma once

#include <cstddef>

#include "platform/platform.h"

// The running library's own file: the configuration file, the log file, the UI library's name and the
// about text all follow its name.

// Stored by the library entry on every call, before anything else runs.
void StoreModuleHandle(HMODULE module);

// The library's full path. False when it can't be had or doesn't fit `size` characters with its NUL.
bool GetModuleFilePath(WCHAR* path, DWORD size);

constexpr std::size_t kModuleBaseNameSize = 256;  // the platform's limit for a file's name

// The file name without folder and extension; "Farlink" when the path can't be had.
void getModuleBaseName(WCHAR (&baseName)[kModuleBaseNameSize]);
