#include "diagnostics/function_trace.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kTextSize = 2000;  // of a formatted text, and of a line built from it

// Writes "%s{%s" and its like: four blanks per level, then the line.
void WriteIndented(int depth, const char* format, FormatArguments arguments)
{
    char line[kTextSize];
    const std::size_t blanks = std::min(static_cast<std::size_t>(std::max(depth, 0)) * 4, sizeof(line) - 1);
    std::memset(line, ' ', blanks);
    FormatText(line + blanks, sizeof(line) - blanks, format, arguments);
    vexkitTypeDiagnosticPuts(line);
}

}  // namespace

DWORD gTraceDepthSlot = TLS_OUT_OF_INDEXES;

// Out of line: its buffers would otherwise stand in every traced method's path.
void CFunctionTrace::WriteEntry(const char* format, FormatArguments arguments) const
{
    if (format == nullptr) {
        WriteIndented(depth, "{%s", {functionName});
        return;
    }
    char text[kTextSize];
    FormatText(text, sizeof(text), format, arguments);
    WriteIndented(depth, "{%s: %s", {functionName, static_cast<const char*>(text)});
}

void CFunctionTrace::WriteExit() const
{
    const char* failure = failureText != nullptr ? failureText.get() : "out of memory";
    if (EventIsOn(krelpmEventTrace)) {
        if (failed)
            WriteIndented(depth, "}%s: ERROR: %s", {functionName, failure});
        else
            WriteIndented(depth, "}%s", {functionName});
    } else if (EventIsOn(krelpmEventError) && failed) {
        WriteIndented(0, "%s: ERROR: %s", {functionName, failure});
    }
}

void CFunctionTrace::StoreFailure(const char* format, FormatArguments arguments)
{
    char text[kTextSize];
    const std::size_t length = FormatText(text, sizeof(text), format, arguments);
    failed = length > 0;
    failureText.reset(failed ? new (std::nothrow) char[length + 1] : nullptr);
    if (failureText != nullptr)
        std::memcpy(failureText.get(), text, length + 1);
}

void CFunctionTrace::WriteMessage(const char* format, FormatArguments arguments)
{
    char text[kTextSize];
    FormatText(text, sizeof(text), format, arguments);
    vexkitTypeDiagnosticPuts(text);
}

void CreateTraceDepthSlot()
{
    gTraceDepthSlot = TlsAlloc();
    ResetTraceDepth();
}

void ResetTraceDepth()
{
    if (gTraceDepthSlot != TLS_OUT_OF_INDEXES)
        (void)TlsSetValue(gTraceDepthSlot, nullptr);
}

void FreeTraceDepthSlot()
{
    if (gTraceDepthSlot != TLS_OUT_OF_INDEXES)
        TlsFree(gTraceDepthSlot);
    gTraceDepthSlot = TLS_OUT_OF_INDEXES;
}
