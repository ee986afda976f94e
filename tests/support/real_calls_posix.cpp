#include <dlfcn.h>

#include "platform/posix/test_switches.h"
#include "tests/support/real_calls.h"

namespace {

template <class Function>
Function Next(Function, const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

HMODULE RealLoadLibraryW(LPCWSTR name)
{
    return Next(&LoadLibraryW, "LoadLibraryW")(name);
}

FARPROC RealGetProcAddress(HMODULE module, LPCSTR name)
{
    return Next(&GetProcAddress, "GetProcAddress")(module, name);
}

BOOL RealFreeLibrary(HMODULE module)
{
    return Next(&FreeLibrary, "FreeLibrary")(module);
}

BOOL RealWriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, void* overlapped)
{
    return Next(&WriteFile, "WriteFile")(file, data, size, written, overlapped);
}

void ResetPlatform()
{
    test_switches::Reset();
}
