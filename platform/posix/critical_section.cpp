#include "platform/posix/call_switch.h"

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    posix_layer::CountCall("InitializeCriticalSection");
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&section->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    posix_layer::CountCall("DeleteCriticalSection");
    pthread_mutex_destroy(&section->mutex);
}

void EnterCriticalSection(CRITICAL_SECTION* section)
{
    posix_layer::CountCall("EnterCriticalSection");
    pthread_mutex_lock(&section->mutex);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    if (posix_layer::CallFails("TryEnterCriticalSection"))
        return FALSE;
    return pthread_mutex_trylock(&section->mutex) == 0;
}

void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    posix_layer::CountCall("LeaveCriticalSection");
    pthread_mutex_unlock(&section->mutex);
}
