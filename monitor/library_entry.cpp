#include "monitor/library_entry.h"

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/diagnostics.h"
#include "diagnostics/module_file.h"
#include "ports/display_names.h"

namespace {

constexpr char kAttachLine[] = "DllEntryPoint in server port monitor DLL - DLL_PROCESS_ATTACH";
constexpr char kDetachLine[] = "DllEntryPoint in server port monitor DLL - DLL_PROCESS_DETACH";

bool gIsAttached = false;

void Attach(HMODULE module)
{
    DiagnosticsStartup(DLL_PROCESS_ATTACH);
    if (EventIsOn(krelpmEventEntry))
        vexkitTypeDiagnosticPuts(kAttachLine);
    ReadDisplayNames();
    // Refused to a library with thread-local storage of its own; threads that start then do no harm.
    (void)DisableThreadLibraryCalls(module);
    gIsAttached = true;
}

void Detach()
{
    gIsAttached = false;
    if (EventIsOn(krelpmEventEntry))
        vexkitTypeDiagnosticPuts(kDetachLine);
    DiagnosticsShutdown();
    FreeDisplayNames();
}

void EndWithProcess()
{
    if (EventIsOn(krelpmEventEntry))
        DiagnosticPutsAtProcessEnd(kDetachLine);
    gLogToFile = 0;  // no line may follow, and other threads may still run
    gLogToDebugOutput = 0;
}

}  // namespace

bool IsLibraryAttached()
{
    return gIsAttached;
}

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved)
try {
    StoreModuleHandle(module);
    if (reason == DLL_PROCESS_ATTACH)
        Attach(module);
    else if (reason == DLL_THREAD_ATTACH)
        DiagnosticsStartup(DLL_THREAD_ATTACH);
    else if (reason == DLL_PROCESS_DETACH && reserved == nullptr)
        Detach();
    else if (reason == DLL_PROCESS_DETACH)
        EndWithProcess();
    return 1;
} catch (...) {  // out of memory at the attach: the library is there, and no monitor starts
    return 1;
}
