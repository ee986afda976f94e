#include <dlfcn.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/test_switches.h"
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

BOOL RealWriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, LPOVERLAPPED overlapped)
{
    return Next(&WriteFile, "WriteFile")(file, data, size, written, overlapped);
}

// The library finds them by itself: the executable stands first in the search for a symbol.
void PutDoublesBefore(HMODULE) {}

bool IsLoaded(const std::filesystem::path& library)
{
    std::ifstream maps("/proc/self/maps");
    const std::string all{std::istreambuf_iterator<char>(maps), {}};
    return all.find(library.string()) != std::string::npos;
}

void SetTempFolder(const std::filesystem::path& folder)
{
    static const char* const atFirst = std::getenv("TMPDIR");
    static const std::string kept = atFirst != nullptr ? atFirst : "";
    const std::string value = folder.empty() ? kept : folder.string();
    if (value.empty())
        unsetenv("TMPDIR");
    else
        setenv("TMPDIR", value.c_str(), 1);
}

bool IsOpenToEveryone(const std::filesystem::path& file)
{
    constexpr auto kAll = static_cast<std::filesystem::perms>(0666);
    return (std::filesystem::status(file).permissions() & static_cast<std::filesystem::perms>(0777)) == kAll;
}

const char* const kLastLineAtExit = "DLL_PROCESS_DETACH";

void ResetPlatform()
{
    test_switches::Reset();
}
