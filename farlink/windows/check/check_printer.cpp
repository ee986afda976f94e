#include "farlink/windows/check/check_printer.h"

#include <algorithm>

#include "farlink/failure.h"
#include "farlink/interrupts.h"

namespace farlink {

namespace {

constexpr LPCWSTR kDriver = TEXT("Generic / Text Only");
constexpr DWORD kPatienceMs = 120000;
constexpr DWORD kPauseMs = 100;
constexpr DWORD kThrough = JOB_STATUS_DELETED | JOB_STATUS_PRINTED | JOB_STATUS_COMPLETE;

// Part of every Windows, but not installed before somebody wants it.
void InstallDriver()
{
    using Install = HRESULT(WINAPI*)(LPCWSTR server, LPCWSTR information, LPCWSTR driver, LPCWSTR environment,
                                     DWORD flags);
    const auto install = FunctionCast<Install>(
        GetProcAddress(GetModuleHandleW(TEXT("winspool.drv")), "InstallPrinterDriverFromPackageW"));
    if (install == nullptr || FAILED(install(nullptr, nullptr, kDriver, nullptr, 0)))
        throw Failure("The driver '" + ToUtf8(kDriver) +
                      "' can't be installed; add a printer with it by hand, which may then be deleted");
}

HANDLE NewPrinter(WideString name, WideString port)
{
    WideString driver = kDriver;
    WideString processor = TEXT("winprint");
    WideString type = TEXT("RAW");
    PRINTER_INFO_2W record{};
    record.pPrinterName = name.data();
    record.pPortName = port.data();
    record.pDriverName = driver.data();
    record.pPrintProcessor = processor.data();
    record.pDatatype = type.data();
    return AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&record));
}

}  // namespace

bool IsWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), "wine_get_version") != nullptr;
}

void Await(const std::string& what, const std::function<bool()>& holds)
{
    for (const DWORD start = GetTickCount(); !holds(); Sleep(kPauseMs)) {
        if (InterruptAsked() || EndAsked())
            throw Failure("interrupted");
        if (GetTickCount() - start > kPatienceMs)
            throw Failure(what + " within " + std::to_string(kPatienceMs / 1000) + " s");
    }
}

CheckPrinter::CheckPrinter(std::uint16_t server)
    : port{TEXT("Farlink check ") +
               ToUtf16(std::to_string(GetCurrentProcessId()) + "-" + std::to_string(GetTickCount())),
           TEXT("127.0.0.1"), server},
      name(port.name)
{
}

CheckPrinter::~CheckPrinter()
{
    try {
        Remove();
    } catch (const std::exception&) {
        // The step that removes them has told; there is nobody left to tell.
    }
}

void CheckPrinter::MakePort()
{
    AddPort(port);
    hasPort = true;
}

void CheckPrinter::MakePrinter()
{
    HANDLE added = NewPrinter(name, port.name);
    if (added == nullptr && GetLastError() == ERROR_UNKNOWN_PRINTER_DRIVER) {
        InstallDriver();
        added = NewPrinter(name, port.name);
    }
    if (added == nullptr)
        throw SpoolerFailure("the printer is refused");
    printer = std::make_unique<PrinterHandle>(added);
}

void CheckPrinter::PointTo(std::uint16_t server)
{
    port.number = server;
    SetPort(port);
}

// A document under way keeps the printer, and the printer the port, so both may take a moment.
void CheckPrinter::Remove()
{
    if (printer != nullptr) {
        (void)SetPrinterW(printer->Get(), 0, nullptr, PRINTER_CONTROL_PURGE);
        if (!DeletePrinter(printer->Get()))
            throw SpoolerFailure("the printer can't be deleted");
        printer.reset();
    }
    if (!hasPort)
        return;
    Await("the printer isn't gone", [&] {
        return std::ranges::none_of(ListPrinters(),
                                    [&](const PrinterEntry& entry) { return SameName(entry.name, name); });
    });
    DeletePort(port.name);
    hasPort = false;
}

DWORD CheckPrinter::Spool(const printserver::Bytes& document)
{
    WideString title = TEXT("Farlink check");
    WideString type = TEXT("RAW");
    DOC_INFO_1W info{title.data(), nullptr, type.data()};
    const DWORD job = StartDocPrinterW(printer->Get(), 1, reinterpret_cast<LPBYTE>(&info));
    if (job == 0)
        throw SpoolerFailure("the document is refused");
    printserver::Bytes bytes = document;
    for (std::size_t done = 0; done < bytes.size();) {
        DWORD written = 0;
        if (!WritePrinter(printer->Get(), bytes.data() + done, static_cast<DWORD>(bytes.size() - done),
                          &written))
            throw SpoolerFailure("the document is refused");
        if (written == 0)
            Sleep(kPauseMs);
        done += written;
    }
    if (!EndDocPrinter(printer->Get()) && !IsWine())  // there it means that the printing failed
        throw SpoolerFailure("the document is refused");
    return job;
}

void CheckPrinter::Cancel(DWORD job)
{
    if (!SetJobW(printer->Get(), job, 0, nullptr, JOB_CONTROL_DELETE))
        throw SpoolerFailure("the job can't be deleted");
}

bool CheckPrinter::HasJobs() const
{
    const std::vector<PrinterEntry> printers = ListPrinters();
    const auto entry =
        std::ranges::find_if(printers, [&](const PrinterEntry& each) { return SameName(each.name, name); });
    if (entry == printers.end() || entry->jobs == 0)
        return false;
    return std::ranges::any_of(ListJobs(*printer),
                               [](const JobEntry& job) { return (job.status & kThrough) == 0; });
}

void CheckPrinter::AwaitEmptyQueue()
{
    Await("the job didn't leave the queue", [&] { return !HasJobs(); });
}

}  // namespace farlink
