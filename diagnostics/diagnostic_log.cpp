#include "diagnostics/diagnostic_log.h"

#include <cstring>

#include "diagnostics/format_text.h"
#include "diagnostics/log_file.h"
#include "diagnostics/thread_port_tag.h"

std::atomic<DWORD> gLogToFile{0};
std::atomic<DWORD> gLogToDebugOutput{0};

namespace {

constexpr std::size_t kLineSize = 1023;  // NUL included
constexpr char kLineEnd[] = "\r\n";

// Gives the line's length without its NUL.
std::size_t BuildLine(char (&line)[kLineSize], const char* message)
{
    SYSTEMTIME time;
    GetLocalTime(&time);
    char tag[kThreadPortTagSize];
    GetThreadPortTag(tag);
    const std::size_t length = FormatText(
        line, sizeof(line) - 2, "%02d:%02d:%02d.%03d %s 0x%08X\t%s",
        {time.wHour, time.wMinute, time.wSecond, time.wMilliseconds, static_cast<const char*>(tag),
         GetCurrentThreadId(), message != nullptr ? message : "vexkitTypeDiagnosticPuts passed NULL"});
    std::memcpy(line + length, kLineEnd, sizeof(kLineEnd));
    return length + 2;
}

void WriteLine(const char* message, bool mayWait)
{
    if (!AnySinkOn())
        return;
    const DWORD lastError = GetLastError();
    char line[kLineSize];
    const std::size_t length = BuildLine(line, message);
    if (gLogToDebugOutput.load(std::memory_order_relaxed) != 0)
        OutputDebugStringA(line);
    if (gLogToFile.load(std::memory_order_relaxed) != 0)
        WriteToLogFile(line, length, mayWait);
    SetLastError(lastError);
}

void Store(std::atomic<DWORD>& setting, std::optional<DWORD> value)
{
    if (value)
        setting = *value;
}

}  // namespace

void vexkitTypeDiagnosticPuts(const char* message)
{
    WriteLine(message, true);
}

void DiagnosticPutsAtProcessEnd(const char* message)
{
    WriteLine(message, false);
}

void ApplyLogSettings(const LogSettings& settings)
{
    if (settings.logToFile.value_or(0) != 0)
        CreateLogFileTable();  // before any thread can look for it
    Store(gEventTypesToLog, settings.eventTypesToLog);
    Store(gMaxLogFileSize, settings.maxLogFileSize);
    Store(gLogToFile, settings.logToFile);
    Store(gLogToDebugOutput, settings.logToDebugOutput);
}
