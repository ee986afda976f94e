#include "farlink/windows/check/check_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <span>

#include "farlink/commands.h"
#include "farlink/file_path.h"
#include "farlink/log/log_file_bytes.h"
#include "farlink/log/log_text.h"
#include "farlink/windows/system_library.h"
#include "version/build.h"

namespace farlink {

namespace {

constexpr std::size_t kMostLogLines = 2000;

std::string LineOf(const CheckReport::Result& result)
{
    char start[32];
    (void)std::snprintf(start, sizeof start, "%-8s %6.1f s  ", result.outcome.c_str(), result.seconds);
    return start + result.name + (result.reason.empty() ? "" : ": " + result.reason);
}

std::string SystemText(LPCWSTR name)
{
    std::array<WCHAR, 256> text{};
    DWORD size = sizeof text;
    (void)RegGetValueW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"), name,
                       RRF_RT_REG_SZ, nullptr, text.data(), &size);
    return ToUtf8(text.data());
}

std::string OutputOf(const wchar_t* commandLine)
{
    std::string text;
    FILE* const output = _wpopen(commandLine, L"rb");
    if (output == nullptr)
        return text;
    std::array<char, 4096> buffer{};
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), output))
        text.append(buffer.data(), size);
    _pclose(output);
    return text;
}

void WriteLogLines(std::ostream& report, const std::string& path, const std::string& tag)
{
    LogFileBytes file(path);
    const std::string text = file.Exists() ? file.Read(0, file.Size()) : "";
    std::vector<std::string_view> records = RecordsOf(text);
    std::erase_if(records, [&](std::string_view record) { return FieldsOf(record).tag != tag; });
    if (records.empty())
        report << "none; 'farlink log level --file on', then a restart of the spooler, switches it on\n";
    const std::size_t left = records.size() - std::min(records.size(), kMostLogLines);
    for (const std::string_view record : std::span(records).subspan(left))
        report << record << '\n';
}

}  // namespace

bool CheckReport::Step(const std::string& name, const std::function<void()>& step)
{
    const DWORD start = GetTickCount();
    std::string outcome = "ok";
    std::string reason;
    try {
        step();
    } catch (const std::exception& error) {
        outcome = "FAILED";
        reason = error.what();
    }
    Add({outcome, name, (GetTickCount() - start) / 1000.0, reason});
    return outcome == "ok";
}

void CheckReport::Skip(const std::string& name, const std::string& reason)
{
    Add({"skipped", name, 0, reason});
}

void CheckReport::Add(Result result)
{
    if (!isQuiet)
        PrintLine(LineOf(result));
    results.push_back(std::move(result));
}

int CheckReport::Count(const std::string& outcome) const
{
    return static_cast<int>(std::ranges::count(results, outcome, &Result::outcome));
}

void CheckReport::Write(const std::string& path, const std::string& logPath, const std::string& logTag) const
{
    std::ofstream report(PathOf(path), std::ios::binary);
    report << "farlink monitor check\n\nfarlink " << FarlinkBuild() << "\nlibrary "
           << BuildOfSystemLibrary().value_or("of unknown build") << "\nsystem "
           << SystemText(TEXT("ProductName")) << ", " << SystemText(TEXT("BuildLabEx")) << "\n\n";
    for (const Result& result : results)
        report << LineOf(result) << '\n';
    report << "\n--- the spooler's newest events\n"
           << OutputOf(L"wevtutil qe Microsoft-Windows-PrintService/Admin /c:30 /rd:true /f:text 2>nul")
           << "\n--- the monitor's log lines of the check\n";
    try {
        WriteLogLines(report, logPath, logTag);
    } catch (const Failure& failure) {
        report << failure.what() << '\n';
    }
    report.flush();
    if (!report)
        throw Failure("The report '" + path + "' can't be written");
}

}  // namespace farlink
