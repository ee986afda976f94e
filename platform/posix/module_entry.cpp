// Linked into a library that has a DllEntryPoint, and calls it as the platform does: when the library is
// loaded, after its constructors; when it is unloaded or the process ends, before its destructors. At
// the end of the process `reserved` is not null. Other threads may still be about then, so that the
// entry point has to leave everything as it lies. For libraries that are loaded at run time.

#include <cstdlib>

#include "platform/posix/module_list.h"

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved);

// What the linker asks for to take this file out of its archive.
extern "C" void LinkModuleEntry() {}

namespace {

HMODULE ThisModule()
{
    return posix_layer::ModuleAt(reinterpret_cast<const void*>(&LinkModuleEntry));
}

void Detach(bool processEnds)
{
    static bool isDetached = false;
    if (isDetached)
        return;
    isDetached = true;
    const HMODULE module = ThisModule();
    DllEntryPoint(module, DLL_PROCESS_DETACH, processEnds ? module : nullptr);
    posix_layer::ForgetModulePath(module);
}

[[gnu::constructor]] void Attach()
{
    const HMODULE module = ThisModule();
    posix_layer::ForgetModulePath(module);
    DllEntryPoint(module, DLL_PROCESS_ATTACH, nullptr);
    // The handlers of exit come before the loader's own clean-up. In an unload it is the other way.
    (void)std::atexit([] { Detach(true); });
}

[[gnu::destructor]] void Unload()
{
    Detach(false);
}

}  // namespace
