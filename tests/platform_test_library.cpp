// A library with an entry point, for the tests of loading. Its observer sees what the entry point sees.

#include "platform/platform.h"

#define EXPORTED extern "C" [[gnu::visibility("default")]]

namespace {

struct Global {
    bool alive = false;
    Global() : alive(GetCurrentProcessId() != 0) {}  // nothing that a compiler can do beforehand
    ~Global() { alive = false; }
};

Global global;
bool attachedWithGlobals = false;
HMODULE ownModule = nullptr;
WCHAR pathAtAttach[1024];
void (*observer)(bool globalsAlive, bool processEnds) = nullptr;

}  // namespace

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved)
{
    ownModule = module;
    if (reason == DLL_PROCESS_ATTACH) {
        attachedWithGlobals = global.alive;
        GetModuleFileNameW(module, pathAtAttach, 1024);
    } else if (reason == DLL_PROCESS_DETACH && observer != nullptr) {
        observer(global.alive, reserved != nullptr);
    }
    return 1;
}

EXPORTED bool WasAttachedWithGlobals()
{
    return attachedWithGlobals;
}

EXPORTED HMODULE OwnModule()
{
    return ownModule;
}

EXPORTED LPCWSTR PathAtAttach()
{
    return pathAtAttach;
}

EXPORTED void Observe(void (*newObserver)(bool globalsAlive, bool processEnds))
{
    observer = newObserver;
}
