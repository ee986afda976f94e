#include "platform/platform.h"

void WakeBlockedCalls(SOCKET socket)
{
    const DWORD lastError = GetLastError();
    // Calls that begin from now on fail. A socket that is not connected yet refuses this, and has no such
    // calls.
    (void)::shutdown(socket, SD_BOTH);
    // What is inside a call already comes out with WSA_OPERATION_ABORTED, a connect too.
    (void)CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);
    SetLastError(lastError);
}

bool IsWritable(SOCKET socket)
{
    fd_set writable;
    writable.fd_count = 1;
    writable.fd_array[0] = socket;
    timeval atOnce{};
    // An error counts as writable: the send will tell.
    return ::select(0, nullptr, &writable, nullptr, &atOnce) != 0;
}
