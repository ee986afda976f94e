#include "diagnostics/diagnostics.h"

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/function_trace.h"
#include "diagnostics/log_file.h"
#include "diagnostics/thread_port_tag.h"

void DiagnosticsStartup(DWORD reason)
{
    if (reason != DLL_PROCESS_ATTACH) {
        ResetTraceDepth();
        return;
    }
    CreateLogLock();
    CreateTraceDepthSlot();
    CreateThreadTagSlot();
}

void DiagnosticsShutdown()
{
    ApplyLogSettings(kDefaultLogSettings);  // both sinks off: no line may follow
    DestroyLogLock();
    FreeTraceDepthSlot();
    DestroyLogFiles();
    FreeThreadTagSlot();
}
