// Linked into a library that has a DllEntryPoint, and hands it what the loader says: the compiler's runtime
// calls DllMain after the constructors and before the destructors. A function of C linkage with the name
// DllEntryPoint would be called by the runtime itself, before the constructors, and then once more from
// here; the monitor's has C++ linkage.

#include "platform/platform.h"

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved);

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    return DllEntryPoint(module, reason, reserved);
}
