#include "diagnostics/log_file_path.h"

#include <atomic>
#include <memory>
#include <new>

#include "diagnostics/module_file.h"

namespace {

constexpr std::size_t kPathSize = 1024;

struct LogFilePath {
    WCHAR text[kPathSize];
    std::size_t length;
};

// Complete before it is seen: threads that compute it at the same time agree on the first.
std::atomic<const LogFilePath*> gLogFilePath{nullptr};

// Windows 2000 and XP keep the spooler's temporary folder where nobody looks.
bool HasUsableTempFolder()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    return GetVersionExW(&version) == FALSE || version.dwMajorVersion > 5;
}

// Appends; false when the text and its NUL don't fit.
bool Append(LogFilePath& path, WideStringView text)
{
    if (path.length + text.size() >= kPathSize)
        return false;
    text.copy(path.text + path.length, text.size());
    path.length += text.size();
    path.text[path.length] = 0;
    return true;
}

// Leaves an empty text when the path doesn't fit.
void ComputeLogFilePath(LogFilePath& path)
{
    WCHAR folder[kPathSize] = TEXT("c:\\");
    if (HasUsableTempFolder()) {
        const DWORD length = GetTempPathW(kPathSize, folder);
        if (length == 0 || length > kPathSize)
            WideStringView(TEXT("c:\\\0"), 4).copy(folder, 4);
    }
    WCHAR baseName[kModuleBaseNameSize];
    getModuleBaseName(baseName);
    path.length = 0;
    if (!Append(path, folder) || !Append(path, baseName) || !Append(path, TEXT(".log")))
        path.text[0] = 0;
}

}  // namespace

LPCWSTR GetLogFilePath()
{
    const LogFilePath* known = gLogFilePath.load(std::memory_order_acquire);
    if (known == nullptr) {
        std::unique_ptr<LogFilePath> computed(new (std::nothrow) LogFilePath);
        if (computed == nullptr)
            return TEXT("");
        ComputeLogFilePath(*computed);
        if (gLogFilePath.compare_exchange_strong(known, computed.get(), std::memory_order_acq_rel))
            known = computed.release();
    }
    return known->text;
}

void ForgetLogFilePath()
{
    delete gLogFilePath.exchange(nullptr);
}
