#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/windows/checks.h"
#include "tests/windows/spooler_checks.h"
#include "tests/windows/xcv_cases.h"
#include "tests/windows/xcv_session.h"

namespace {

constexpr const wchar_t* kPort = L"printing";
constexpr const wchar_t* kPrinterName = L"Check printer";

// A driver in name only: documents of data type RAW never see it.
bool AddDriverOf(std::wstring name)
{
    std::wstring file = L"C:\\none.drv";
    DRIVER_INFO_3W driver{};
    driver.cVersion = 3;
    driver.pName = name.data();
    driver.pDriverPath = driver.pDataFile = driver.pConfigFile = file.data();
    return AddPrinterDriverExW(nullptr, 3, reinterpret_cast<LPBYTE>(&driver),
                               APD_COPY_NEW_FILES | APD_COPY_FROM_DIRECTORY) != FALSE;
}

HANDLE AddPrinterOn(std::wstring port)
{
    std::wstring driver = L"Check driver";
    std::wstring name = kPrinterName;
    std::wstring processor = L"winprint";
    std::wstring type = L"RAW";
    if (!AddDriverOf(driver))
        return nullptr;
    PRINTER_INFO_2W printer{};
    printer.pPrinterName = name.data();
    printer.pPortName = port.data();
    printer.pDriverName = driver.data();
    printer.pPrintProcessor = processor.data();
    printer.pDatatype = type.data();
    return AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&printer));
}

bool WriteAll(HANDLE printer, std::string& bytes)
{
    constexpr std::size_t kPiece = 30000;
    for (std::size_t done = 0; done < bytes.size();) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(kPiece, bytes.size() - done));
        if (!WritePrinter(printer, bytes.data() + done, size, &written) || written == 0)
            return false;
        done += written;
    }
    return true;
}

DWORD Ask(LPCWSTR command, const std::vector<BYTE>& input)
{
    const XcvSession session(kMonitorSession, SERVER_ACCESS_ADMINISTER);
    DWORD needed = 0;
    return session.Ask(command, input.data(), static_cast<DWORD>(input.size()), nullptr, 0, &needed);
}

}  // namespace

void CheckPrinting(const std::vector<std::string>& words)
{
    const auto number = static_cast<WORD>(std::stoul(words.at(0)));
    std::ifstream file(words.at(1), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    checks::Check(!bytes.empty(), "a document to print", "no " + words.at(1));
    checks::CheckEqual(Ask(L"AddPort", PortRecord(kPort, L"127.0.0.1", number)), 0, "AddPort for a printer");
    const HANDLE printer = AddPrinterOn(kPort);
    checks::Check(printer != nullptr, "AddPrinterW", "error " + std::to_string(GetLastError()));

    std::wstring title = L"A card";
    std::wstring type = L"RAW";
    DOC_INFO_1W document{title.data(), nullptr, type.data()};
    checks::Check(StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&document)) != 0, "StartDocPrinterW",
                  "error " + std::to_string(GetLastError()));
    checks::Check(WriteAll(printer, bytes), "WritePrinter", "error " + std::to_string(GetLastError()));
    checks::Check(EndDocPrinter(printer) != FALSE, "EndDocPrinter, which prints the document",
                  "error " + std::to_string(GetLastError()));
    checks::Check(DeletePrinter(printer) != FALSE, "DeletePrinter",
                  "error " + std::to_string(GetLastError()));
    ClosePrinter(printer);
    checks::CheckEqual(Ask(L"DeletePort", TextInput(kPort)), 0, "DeletePort of the printer's port");
}

void AddDriver(const std::vector<std::string>& words)
{
    checks::Check(AddDriverOf(ToUtf16(words.at(0))), "a driver is added",
                  "error " + std::to_string(GetLastError()));
}

void AddCheckPrinter(const std::vector<std::string>& words)
{
    const HANDLE printer = AddPrinterOn(ToUtf16(words.at(0)));
    checks::Check(printer != nullptr, "a printer is added", "error " + std::to_string(GetLastError()));
    ClosePrinter(printer);
}

void DeleteCheckPrinter(const std::vector<std::string>&)
{
    std::wstring name = kPrinterName;
    HANDLE printer = nullptr;
    checks::Check(OpenPrinterW(name.data(), &printer, nullptr) && DeletePrinter(printer),
                  "the printer is deleted", "error " + std::to_string(GetLastError()));
    ClosePrinter(printer);
}
