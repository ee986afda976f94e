// Linked into a library that has a DllEntryPoint, and calls it as the platform does: when the library is
// loaded, after its constructors; when it is unloaded or the process ends, before its destructors. At
// the end of the process `reserved` is not null. Other threads may still be about then, so that the
// entry point has to leave everything as it lies. For libraries that are loaded at run time.

#include "platform/posix/module_list.h"

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved);

// atexit by its inner name: a checking runtime that stands in for atexit forgets whose handler it is, and
// calls it after the library has gone.
extern "C" int __cxa_atexit(void (*handler)(void*), void* argument, void* library);
extern "C" void* __dso_handle;

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
    (void)__cxa_atexit([](void*) { Detach(true); }, nullptr, &__dso_handle);
}

[[gnu::destructor]] void Unload()
{
    Detach(false);
}

}  // namespace
