// Linked into a library that has a DllEntryPoint, and hands it what the loader says: the compiler's runtime
// calls DllMain after the constructors and before the destructors. A function of C linkage with the name
// DllEntryPoint would be called by the runtime itself, before the constructors, and then once more from
// here; the monitor's has C++ linkage.

#include "platform/platform.h"

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved);

// The compiler's runtime, which is part of the library, keeps memory for exceptions that find none, and
// leaves it behind: over 70 kB at each load.
namespace __gnu_cxx {
void __freeres();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    const int result = DllEntryPoint(module, reason, reserved);
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr)
        __gnu_cxx::__freeres();
    return result;
}
