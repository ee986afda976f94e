#include <climits>

#include "platform/posix/call_switch.h"
#include "platform/posix/last_error.h"

// A slot is a key of the thread library, which starts null in every thread.

namespace {

BOOL Succeeded(int error)
{
    if (error == 0)
        return TRUE;
    SetLastError(posix_layer::ErrorFromErrno(error));
    return FALSE;
}

}  // namespace

DWORD TlsAlloc()
{
    if (posix_layer::CallFails("TlsAlloc"))
        return TLS_OUT_OF_INDEXES;
    pthread_key_t key = 0;
    return Succeeded(pthread_key_create(&key, nullptr)) ? DWORD{key} : TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD slot)
{
    if (posix_layer::CallFails("TlsFree"))
        return FALSE;
    return Succeeded(pthread_key_delete(slot));
}

LPVOID TlsGetValue(DWORD slot)
{
    if (posix_layer::CallFails("TlsGetValue"))
        return nullptr;
    SetLastError(slot < PTHREAD_KEYS_MAX ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER);
    return pthread_getspecific(slot);
}

BOOL TlsSetValue(DWORD slot, LPVOID value)
{
    if (posix_layer::CallFails("TlsSetValue"))
        return FALSE;
    return Succeeded(pthread_setspecific(slot, value));
}
