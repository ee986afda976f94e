#include "diagnostics/log_file.h"

#include <algorithm>
#include <functional>
#include <map>
#include <new>

#include "diagnostics/create_log_file.h"
#include "diagnostics/locks.h"
#include "diagnostics/log_file_path.h"

std::atomic<DWORD> gMaxLogFileSize{0};

namespace {

constexpr char kMarker[] = "===wrap===\r\n";
constexpr DWORD kMarkerSize = sizeof(kMarker) - 1;

struct LogFileEntry {
    HANDLE handle;          // INVALID_HANDLE_VALUE: opening failed, and isn't tried again
    ULONGLONG bytesInPass;  // size at opening, then lines written since the last wrap; no markers
};

// Both on the heap: a table with a destructor of its own would go before the last line.
CLock* gLogLock = nullptr;
std::map<WideString, LogFileEntry, std::less<>>* gLogFiles THREAD_ANNOTATION(pt_guarded_by(*gLogLock)) =
    nullptr;

ULONGLONG LimitInBytes()
{
    const ULONGLONG limit = ULONGLONG{gMaxLogFileSize.load(std::memory_order_relaxed)} * 1024;
    return std::min<ULONGLONG>(limit, 0xFFFFFFFF);
}

// Moves within files beyond 2 GiB too, which takes both halves of the distance.
void MoveFilePosition(HANDLE file, LONG distance, DWORD method)
{
    LONG high = distance < 0 ? -1 : 0;
    SetFilePointer(file, distance, &high, method);
}

LogFileEntry OpenLogFile(LPCWSTR path)
{
    LogFileEntry entry{CreateLogFile(path), 0};
    if (entry.handle != INVALID_HANDLE_VALUE) {
        MoveFilePosition(entry.handle, 0, FILE_END);
        DWORD high = 0;
        const DWORD low = GetFileSize(entry.handle, &high);
        entry.bytesInPass = (ULONGLONG{high} << 32) + low;
    }
    return entry;
}

// The line goes in whole before the limit is looked at again, so a line is never split. The position is
// left on the marker: the next line overwrites it. On a full disk there may be none, and nothing of the
// lines before is to be overwritten in its place.
void WriteWrapping(LogFileEntry& entry, const char* line, DWORD length, ULONGLONG limit)
{
    if (entry.bytesInPass > limit) {
        SetEndOfFile(entry.handle);
        MoveFilePosition(entry.handle, 0, FILE_BEGIN);
        entry.bytesInPass = 0;
    }
    DWORD written = 0;
    WriteFile(entry.handle, line, length, &written, nullptr);
    entry.bytesInPass += written;
    WriteFile(entry.handle, kMarker, kMarkerSize, &written, nullptr);
    MoveFilePosition(entry.handle, -static_cast<LONG>(written), FILE_CURRENT);
}

void WriteLocked(LPCWSTR path, const char* line, DWORD length)
    THREAD_ANNOTATION(requires_capability(*gLogLock))
{
    auto found = gLogFiles->find(WideStringView(path));
    if (found == gLogFiles->end()) {
        try {
            found = gLogFiles->emplace(path, LogFileEntry{INVALID_HANDLE_VALUE, 0}).first;
        } catch (const std::bad_alloc&) {
            return;
        }
        found->second = OpenLogFile(path);
    }
    LogFileEntry& entry = found->second;
    const ULONGLONG limit = LimitInBytes();
    DWORD written = 0;
    if (entry.handle == INVALID_HANDLE_VALUE)
        return;
    if (limit == 0)
        WriteFile(entry.handle, line, length, &written, nullptr);
    else
        WriteWrapping(entry, line, length, limit);
}

}  // namespace

void CreateLogLock()
{
    if (gLogLock == nullptr)
        gLogLock = new CLock;
}

void DestroyLogLock()
{
    delete gLogLock;
    gLogLock = nullptr;
}

void DestroyLogFiles() THREAD_ANNOTATION(no_thread_safety_analysis)
{
    if (gLogFiles != nullptr) {
        for (auto& [path, entry] : *gLogFiles) {
            if (entry.handle != INVALID_HANDLE_VALUE)
                CloseHandle(entry.handle);
        }
    }
    delete gLogFiles;
    gLogFiles = nullptr;
    ForgetLogFilePath();
}

void CreateLogFileTable()
{
    CLockScope held(*gLogLock);
    if (gLogFiles == nullptr)
        gLogFiles = new std::map<WideString, LogFileEntry, std::less<>>;
}

void WriteToLogFile(const char* line, std::size_t length, bool mayWait)
{
    const LPCWSTR path = GetLogFilePath();
    if (*path == 0)
        return;
    if (mayWait)
        gLogLock->Enter();
    else if (!gLogLock->TryEnter())
        return;
    WriteLocked(path, line, static_cast<DWORD>(length));
    gLogLock->Leave();
}
