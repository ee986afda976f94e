#include "admin/revert_to_printer_self.h"

#include "diagnostics/function_trace.h"

krelRevertToPrinterSelf::krelRevertToPrinterSelf()
{
    CFunctionTrace trace("krelRevertToPrinterSelf::krelRevertToPrinterSelf");

    module = LoadLibraryW(TEXT("spoolss.dll"));
    if (module == nullptr) {
        trace.Fail("Unable to load spoolss.dll");
        return;
    }
    revertToPrinterSelf =
        FunctionCast<decltype(revertToPrinterSelf)>(GetProcAddress(module, "RevertToPrinterSelf"));
    if (revertToPrinterSelf == nullptr) {
        trace.Fail("Failed to get address of RevertToPrinterSelf()");
        return;
    }
    impersonatePrinterClient =
        FunctionCast<decltype(impersonatePrinterClient)>(GetProcAddress(module, "ImpersonatePrinterClient"));
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
