#include "platform/posix/module_list.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>

#include <filesystem>
#include <map>
#include <mutex>

namespace {

// A path and the loader's name from which it was made: with another name, another module has come to
// the same address since.
struct KnownPath {
    std::string loaderName;
    std::string path;
};

// Keyed by load address. Never destroyed: libraries ask while the process ends. A library that attaches or
// detaches comes here with the loader's lock held, so that nothing of the loader's is called under this one.
struct KnownPaths {
    std::mutex lock;
    std::map<HMODULE, KnownPath> paths;
};

KnownPaths& Known()
{
    static KnownPaths& known = *new KnownPaths;
    return known;
}

std::string LoaderName(HMODULE module)
{
    Dl_info info{};
    return dladdr(module, &info) != 0 ? info.dli_fname : std::string();
}

std::string DeterminePath(HMODULE module, const std::string& loaderName)
{
    if (module == posix_layer::ExecutableModule())
        return std::filesystem::read_symlink("/proc/self/exe").string();
    std::filesystem::path path;
    for (const std::filesystem::path& piece : std::filesystem::absolute(loaderName)) {
        if (piece != ".")  // ".." stays, since what it leads to from behind a link isn't told by the text
            path /= piece;
    }
    return path.string();
}

// Empty when none is known.
std::string KnownPathOf(HMODULE module, const std::string& loaderName)
{
    KnownPaths& known = Known();
    const std::lock_guard lock(known.lock);
    const auto found = known.paths.find(module);
    return found != known.paths.end() && found->second.loaderName == loaderName ? found->second.path
                                                                                : std::string();
}

}  // namespace

namespace posix_layer {

HMODULE ModuleAt(const void* address)
{
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

bool IsModule(HMODULE module)
{
    return module != nullptr && ModuleAt(module) == module;
}

HMODULE ExecutableModule()
{
    return ModuleAt(reinterpret_cast<const void*>(getauxval(AT_PHDR)));
}

HMODULE LayerModule()
{
    return ModuleAt(reinterpret_cast<const void*>(&LayerModule));
}

std::string LayerFolder()
{
    const std::string path = ModulePath(LayerModule());
    return path.substr(0, path.rfind('/') + 1);
}

std::string ModulePath(HMODULE module)
{
    const std::string loaderName = LoaderName(module);
    if (std::string path = KnownPathOf(module, loaderName); !path.empty())
        return path;
    const std::string path = DeterminePath(module, loaderName);
    KnownPaths& known = Known();
    const std::lock_guard lock(known.lock);
    known.paths[module] = {loaderName, path};
    return path;
}

void ForgetModulePath(HMODULE module)
{
    KnownPaths& known = Known();
    const std::lock_guard lock(known.lock);
    known.paths.erase(module);
}

void* ReopenModule(HMODULE module, int flags)
{
    Dl_info info{};
    link_map* map = nullptr;
    if (dladdr1(module, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0)
        return nullptr;
    // The loader compares its own name for the module before it looks at any file.
    return dlopen(map->l_name, RTLD_LAZY | RTLD_NOLOAD | flags);
}

}  // namespace posix_layer
