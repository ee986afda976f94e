#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

#include "platform/platform.h"
#include "platform/posix/call_switch.h"
#include "platform/posix/module_list.h"

namespace {

// The libraries that LoadLibraryW has loaded, by load address.
struct Load {
    void* opened;
    int count;
};
struct Loads {
    std::mutex lock;
    std::map<HMODULE, Load> byModule;
};

Loads& AllLoads()
{
    static Loads& loads = *new Loads;  // never destroyed: libraries are freed while the process ends
    return loads;
}

// The socket calls have C++ linkage here, so that a look-up by name has to be told of them.
struct SocketCall {
    const char* name;
    FARPROC address;
};
const SocketCall kSocketCalls[] = {
    {"getaddrinfo", reinterpret_cast<FARPROC>(&getaddrinfo)},
    {"freeaddrinfo", reinterpret_cast<FARPROC>(&freeaddrinfo)},
    {"getnameinfo", reinterpret_cast<FARPROC>(&getnameinfo)},
    {"gethostbyname", reinterpret_cast<FARPROC>(&gethostbyname)},
};

// The file that a library name stands for.
std::string FileOf(LPCWSTR name)
{
    if (_wcsicmp(name, TEXT("ws2_32.dll")) == 0)
        return posix_layer::ModulePath(posix_layer::LayerModule());
    if (_wcsicmp(name, TEXT("spoolss.dll")) == 0)
        return posix_layer::LayerFolder() + "libspoolss.so";
    const std::string file = ToUtf8(name);
    if (file.find('/') != std::string::npos)
        return std::filesystem::absolute(file).string();
    const std::string beside = posix_layer::LayerFolder() + file;
    return access(beside.c_str(), F_OK) == 0 ? beside : file;
}

HMODULE ModuleOf(void* opened)
{
    void* map = nullptr;
    dlinfo(opened, RTLD_DI_LINKMAP, &map);
    return posix_layer::ModuleAt(static_cast<link_map*>(map)->l_ld);
}

BOOL NoSuchModule()
{
    SetLastError(ERROR_MOD_NOT_FOUND);
    return FALSE;
}

FARPROC FindSocketCall(LPCSTR name)
{
    for (const SocketCall& call : kSocketCalls) {
        if (std::strcmp(call.name, name) == 0)
            return call.address;
    }
    return nullptr;
}

// What the module itself defines; the loader would also search the libraries that it needs.
FARPROC FindOwnSymbol(HMODULE module, LPCSTR name)
{
    void* opened = posix_layer::ReopenModule(module, 0);
    if (opened == nullptr)
        return nullptr;
    void* symbol = dlsym(opened, name);
    dlclose(opened);
    return posix_layer::ModuleAt(symbol) == module ? reinterpret_cast<FARPROC>(symbol) : nullptr;
}

}  // namespace

HMODULE LoadLibraryW(LPCWSTR name)
{
    return posix_layer::GuardedCall("LoadLibraryW", HMODULE{nullptr}, [&]() -> HMODULE {
        if (name == nullptr || *name == 0) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        void* opened = dlopen(FileOf(name).c_str(), RTLD_NOW | RTLD_LOCAL);
        if (opened == nullptr) {
            OutputDebugStringA(dlerror());
            SetLastError(ERROR_MOD_NOT_FOUND);
            return nullptr;
        }
        const HMODULE module = ModuleOf(opened);
        (void)posix_layer::ModulePath(module);
        Loads& loads = AllLoads();
        const std::lock_guard lock(loads.lock);
        ++loads.byModule.try_emplace(module, Load{opened, 0}).first->second.count;
        return module;
    });
}

BOOL FreeLibrary(HMODULE module)
{
    if (posix_layer::CallFails("FreeLibrary"))
        return FALSE;
    void* opened = nullptr;
    {
        Loads& loads = AllLoads();
        const std::lock_guard lock(loads.lock);
        const auto found = loads.byModule.find(module);
        if (found == loads.byModule.end())
            return NoSuchModule();
        opened = found->second.opened;
        if (--found->second.count == 0)
            loads.byModule.erase(found);
    }
    // Outside the lock, because the library's own detach may call here.
    dlclose(opened);
    if (!posix_layer::IsModule(module))
        posix_layer::ForgetModulePath(module);
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name)
{
    if (posix_layer::CallFails("GetProcAddress"))
        return nullptr;
    if (!posix_layer::IsModule(module)) {
        NoSuchModule();
        return nullptr;
    }
    FARPROC found = module == posix_layer::LayerModule() ? FindSocketCall(name) : nullptr;
    if (found == nullptr)
        found = FindOwnSymbol(module, name);
    if (found == nullptr)
        SetLastError(ERROR_PROC_NOT_FOUND);
    return found;
}

HMODULE GetModuleHandleW(LPCWSTR name)
{
    if (posix_layer::CallFails("GetModuleHandleW"))
        return nullptr;
    if (name != nullptr) {
        NoSuchModule();
        return nullptr;
    }
    return posix_layer::ExecutableModule();
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
{
    return posix_layer::GuardedCall("GetModuleFileNameW", DWORD{0}, [&]() -> DWORD {
        const HMODULE asked = module == nullptr ? posix_layer::ExecutableModule() : module;
        if (!posix_layer::IsModule(asked)) {
            NoSuchModule();
            return 0;
        }
        const std::u16string path = ToUtf16(posix_layer::ModulePath(asked));
        if (path.size() >= size) {
            path.copy(buffer, size);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return size;
        }
        path.copy(buffer, path.size());
        buffer[path.size()] = 0;
        return static_cast<DWORD>(path.size());
    });
}

BOOL DisableThreadLibraryCalls(HMODULE module)
{
    if (posix_layer::CallFails("DisableThreadLibraryCalls"))
        return FALSE;
    return posix_layer::IsModule(module) ? TRUE : NoSuchModule();
}

void PinModule(const void* address)
{
    const HMODULE module = posix_layer::ModuleAt(address);
    // Never closed again.
    if (module != nullptr)
        (void)posix_layer::ReopenModule(module, RTLD_NODELETE);
}
