#include "platform/platform.h"

CProcessIdentity::CProcessIdentity()
{
    const DWORD lastError = GetLastError();
    // As the process itself, for the client may have no right to its token.
    if (OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &client) && !RevertToSelf()) {
        CloseHandle(client);
        client = nullptr;
    }
    SetLastError(lastError);
}

CProcessIdentity::~CProcessIdentity()
{
    if (client == nullptr)
        return;
    const DWORD lastError = GetLastError();
    // A thread that can't go back must not do the client's work with the process's rights.
    if (!SetThreadToken(nullptr, client))
        (void)ImpersonateAnonymousToken(GetCurrentThread());
    CloseHandle(client);
    SetLastError(lastError);
}
