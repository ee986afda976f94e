#include "monitor/library_entry.h"

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/diagnostics.h"
#include "diagnostics/module_file.h"
#include "monitor/display_names.h"

namespace {

constexpr char kAttachLine[] = "DllEntryPoint in server port monitor DLL - DLL_PROCESS_ATTACH";
constexpr char kDetachLine[] = "DllEntryPoint in server port monitor DLL - DLL_PROCESS_DETACH";

void Attach(HMODULE module)
{
    DiagnosticsStartup(DLL_PROCESS_ATTACH);
    if (EventIsOn(krelpmEventEntry))
        vexkitTypeDiagnosticPuts(kAttachLine);
    ReadDisplayNames();
    // Refused to a library with thread-local storage of its own; threads that start then do no harm.
    (void)DisableThreadLibraryCalls(module);
}

void Detach()
{
    if (EventIsOn(krelpmEventEntry))
        vexkitTypeDiagnosticPuts(kDetachLine);
    DiagnosticsShutdown();
    FreeDisplayNames();
}

void EndWithProcess()
{
    if (EventIsOn(krelpmEventEntry))
        DiagnosticPutsAtProcessEnd(kDetachLine);
}

}  // namespace

int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved)
{
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
}
