#pragma once

#include <string>

#include "platform/platform.h"

// A session with a monitor or a port through the spooler.
class XcvSession {
public:
    // `name` is ",XcvMonitor NAME" or ",XcvPort NAME".
    XcvSession(std::wstring name, ACCESS_MASK access)
    {
        PRINTER_DEFAULTSW defaults{nullptr, nullptr, access};
        if (!OpenPrinterW(name.data(), &handle, &defaults)) {
            handle = nullptr;
            error = GetLastError();
        }
    }
    ~XcvSession()
    {
        if (handle != nullptr)
            ClosePrinter(handle);
    }
    XcvSession(const XcvSession&) = delete;
    XcvSession& operator=(const XcvSession&) = delete;

    bool IsOpen() const { return handle != nullptr; }
    DWORD Error() const { return error; }

    // The monitor's word, or the spooler's if it didn't ask the monitor. `needed` reads 0 if it wasn't
    // written.
    DWORD Ask(LPCWSTR command, const void* input, DWORD inputSize, void* output, DWORD outputSize,
              DWORD* needed) const
    {
        DWORD status = 0;
        if (!XcvDataW(handle, command, static_cast<PBYTE>(const_cast<void*>(input)), inputSize,
                      static_cast<PBYTE>(output), outputSize, needed, &status))
            return GetLastError();
        return status;
    }

private:
    HANDLE handle = nullptr;
    DWORD error = 0;
};
