#include "diagnostics/module_file.h"

#include <algorithm>

namespace {

HMODULE gModule = nullptr;

}  // namespace

void StoreModuleHandle(HMODULE module)
{
    gModule = module;
}

bool GetModuleFilePath(WCHAR* path, DWORD size)
{
    const DWORD length = GetModuleFileNameW(gModule, path, size);
    return length > 0 && length < size;  // a path that was cut fills the whole buffer
}

void getModuleBaseName(WCHAR (&baseName)[kModuleBaseNameSize])
{
    WCHAR path[1024];
    if (GetModuleFilePath(path, 1024))
        _wsplitpath(path, nullptr, nullptr, baseName, nullptr);
    else
        WideStringView(TEXT("Farlink\0"), 8).copy(baseName, 8);
}
