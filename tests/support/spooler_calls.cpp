// The spooler's calls as the test binary defines them: they stand in front of the real ones, and the
// monitor, linked into the same binary, finds them.

#include "tests/support/failing_new.h"
#include "tests/support/log_lines.h"
#include "tests/support/real_calls.h"
#include "tests/support/spooler_double.h"

namespace {

// The double during one call of the monitor's: its own memory never runs out.
struct Double {
    UntouchedNew untouched;

    SpoolerDouble* operator->() const { return &SpoolerDouble::Instance(); }
};

// Any address of our own does as the handle of the library that isn't there.
HMODULE SpoolssModule()
{
    static BYTE module;
    return reinterpret_cast<HMODULE>(&module);
}

}  // namespace

extern "C" {

BOOL OpenPrinterW(LPWSTR name, LPHANDLE printer, PRINTER_DEFAULTSW*)
{
    return Double()->DoOpenPrinter(name, printer);
}

BOOL ClosePrinter(HANDLE printer)
{
    return Double()->DoClosePrinter(printer);
}

BOOL GetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed)
{
    return Double()->DoGetJob(printer, jobId, level, job, size, needed);
}

BOOL SetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE, DWORD command)
{
    return Double()->DoSetJob(printer, jobId, level, command);
}

BOOL EnumPortsW(LPWSTR, DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned)
{
    return Double()->DoEnumPorts(level, ports, size, needed, returned);
}

HANDLE RevertToPrinterSelf()
{
    return Double()->DoRevert();
}

BOOL ImpersonatePrinterClient(HANDLE token)
{
    return Double()->DoImpersonate(token);
}

HMODULE LoadLibraryW(LPCWSTR name)
{
    if (_wcsicmp(name, TEXT("spoolss.dll")) != 0)
        return RealLoadLibraryW(name);
    return Double()->DoLoadSpoolss() ? SpoolssModule() : nullptr;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name)
{
    if (module != SpoolssModule())
        return RealGetProcAddress(module, name);
    if (std::string_view(name) == "RevertToPrinterSelf")
        return Double()->DoFind(Spooler::FindRevert) ? FunctionCast<FARPROC>(RevertToPrinterSelf) : nullptr;
    if (std::string_view(name) == "ImpersonatePrinterClient" && Double()->DoFind(Spooler::FindImpersonate))
        return FunctionCast<FARPROC>(ImpersonatePrinterClient);
    return nullptr;
}

BOOL FreeLibrary(HMODULE module)
{
    if (module != SpoolssModule())
        return RealFreeLibrary(module);
    Double()->DoFreeSpoolss();
    return TRUE;
}

void OutputDebugStringA(LPCSTR text)
{
    const UntouchedNew untouched;
    LogLines::Captured().Add(text);
}

}  // extern "C"
