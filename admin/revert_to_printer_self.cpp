#include "admin/revert_to_printer_self.h"

#include "diagnostics/function_trace.h"

namespace {

// Through void*: the platform's FARPROC has a signature of its own.
template <class Function>
Function FindFunction(HMODULE module, LPCSTR name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace

krelRevertToPrinterSelf::krelRevertToPrinterSelf()
{
    CFunctionTrace trace("krelRevertToPrinterSelf::krelRevertToPrinterSelf");

    module = LoadLibraryW(TEXT("spoolss.dll"));
    if (module == nullptr) {
        trace.Fail("Unable to load spoolss.dll");
        return;
    }
    revertToPrinterSelf = FindFunction<decltype(revertToPrinterSelf)>(module, "RevertToPrinterSelf");
    if (revertToPrinterSelf == nullptr) {
        trace.Fail("Failed to get address of RevertToPrinterSelf()");
        return;
    }
    impersonatePrinterClient =
        FindFunction<decltype(impersonatePrinterClient)>(module, "ImpersonatePrinterClient");
    if (impersonatePrinterClient == nullptr) {
        trace.Fail("Failed to get address of ImpersonatePrinterClient()");
        return;
    }
    token = revertToPrinterSelf();  // last, with the way back in hand
}

krelRevertToPrinterSelf::~krelRevertToPrinterSelf()
{
    CFunctionTrace trace("krelRevertToPrinterSelf::~krelRevertToPrinterSelf");

    if (impersonatePrinterClient != nullptr && token != nullptr)
        (void)impersonatePrinterClient(token);
    if (module != nullptr)
        FreeLibrary(module);
}
