#include "spooler/opened_port.h"

#include <algorithm>

namespace spooler {

OpenedPort::OpenedPort(const Monitor& monitor, WideString name) : calls(monitor.Calls())
{
    SetLastError(ERROR_SUCCESS);
    opened = calls.pfnOpenPort(monitor.Handle(), name.data(), &port) != FALSE;
}

OpenedPort::~OpenedPort()
{
    if (started)
        (void)calls.pfnEndDocPort(port);
    if (opened)
        (void)calls.pfnClosePort(port);
}

bool OpenedPort::Start(const Job& job)
{
    WideString printer = job.printer;
    WideString document = job.document;
    WideString datatype = TEXT("RAW");
    DOC_INFO_1W info = {.pDocName = document.data(), .pOutputFile = nullptr, .pDatatype = datatype.data()};
    SetLastError(ERROR_SUCCESS);
    started =
        calls.pfnStartDocPort(port, printer.data(), job.id, 1, reinterpret_cast<LPBYTE>(&info)) != FALSE;
    return started;
}

bool OpenedPort::StartChannel()
{
    DOC_INFO_2W info = {};
    info.dwMode = DI_CHANNEL;
    SetLastError(ERROR_SUCCESS);
    started = calls.pfnStartDocPort(port, nullptr, 0, 2, reinterpret_cast<LPBYTE>(&info)) != FALSE;
    return started;
}

bool OpenedPort::Write(std::span<BYTE> bytes, std::size_t* taken)
{
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = calls.pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &count);
    *taken = std::min<std::size_t>(count, bytes.size());
    return done != FALSE;
}

bool OpenedPort::Query(DWORD controlId, std::span<const BYTE> input, std::span<BYTE> output, DWORD* returned)
{
    // The platform declares the buffers as texts, which they are not.
    const auto text = [](const BYTE* bytes) { return reinterpret_cast<LPWSTR>(const_cast<BYTE*>(bytes)); };
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = calls.pfnGetPrinterDataFromPort(port, controlId, nullptr, text(input.data()),
                                                      static_cast<DWORD>(input.size()), text(output.data()),
                                                      static_cast<DWORD>(output.size()), &count);
    *returned = std::min<DWORD>(count, static_cast<DWORD>(output.size()));
    return done != FALSE;
}

bool OpenedPort::End()
{
    started = false;
    SetLastError(ERROR_SUCCESS);
    return calls.pfnEndDocPort(port) != FALSE;
}

}  // namespace spooler
