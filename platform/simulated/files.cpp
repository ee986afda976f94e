// The one kind of file that the monitor writes, its log. Its content is kept nowhere: what the log says is
// heard on the debug output, where every line goes too.

#include "platform/simulated/files.h"

#include <set>
#include <string_view>

#include "platform/simulated/scheduler.h"

using simulated::Scheduler;

namespace {

std::set<HANDLE> files;
std::function<void(LPCSTR)> debugOutput = [](LPCSTR) {};

void Point(const char* call)
{
    if (Scheduler::IsRunning())
        Scheduler::Current().Point(call);
}

}  // namespace

namespace simulated {

std::size_t OpenFiles()
{
    return files.size();
}

bool CloseFile(HANDLE handle)
{
    return files.erase(handle) > 0;
}

void SetDebugOutput(std::function<void(LPCSTR)> sink)
{
    debugOutput = std::move(sink);
}

}  // namespace simulated

HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)
{
    Point("CreateFileW");
    const HANDLE handle = reinterpret_cast<HANDLE>(0x10000001 + files.size() * 4);
    files.insert(handle);
    return handle;
}

BOOL WriteFile(HANDLE, LPCVOID, DWORD size, DWORD* written, LPOVERLAPPED)
{
    Point("WriteFile");
    *written = size;
    return TRUE;
}

DWORD SetFilePointer(HANDLE, LONG, LONG*, DWORD)
{
    return 0;
}

BOOL SetEndOfFile(HANDLE)
{
    return TRUE;
}

DWORD GetFileSize(HANDLE, DWORD* sizeHigh)
{
    *sizeHigh = 0;
    return 0;
}

DWORD GetTempPathW(DWORD, LPWSTR buffer)
{
    return static_cast<DWORD>(WideStringView(TEXT("/tmp/\0"), 6).copy(buffer, 6) - 1);
}

void OutputDebugStringA(LPCSTR text)
{
    debugOutput(text);
    Point("OutputDebugStringA");
}
