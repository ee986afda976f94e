#pragma once

#include "platform/platform.h"

// Runs a stretch of a command under the spooler's own identity: the constructor drops the client's
// identity on the calling thread, the destructor takes it up again. Opened inside the monitor's
// `changes` and ended before that is left. Without the spooler's library the stretch runs as the client,
// and meets what the client may not do as failed registry calls.
class krelRevertToPrinterSelf {
public:
    krelRevertToPrinterSelf();
    ~krelRevertToPrinterSelf();
    krelRevertToPrinterSelf(const krelRevertToPrinterSelf&) = delete;
    krelRevertToPrinterSelf& operator=(const krelRevertToPrinterSelf&) = delete;

private:
    HMODULE module = nullptr;
    HANDLE token = nullptr;  // null: the identity was not changed
    decltype(&RevertToPrinterSelf) revertToPrinterSelf = nullptr;
    decltype(&ImpersonatePrinterClient) impersonatePrinterClient = nullptr;
};
