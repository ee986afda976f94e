#include "link/resolver.h"

const CResolver& CResolver::Bound()
{
    static const CResolver bound = LookUp();
    return bound;
}

CResolver CResolver::LookUp()
{
    const CResolver substitutes = {&LegacyGetAddrInfo, &LegacyGetNameInfo, &LegacyFreeAddrInfo};
    const HMODULE library = LoadLibraryW(TEXT("ws2_32.dll"));
    if (!library)
        return substitutes;
    const CResolver found = {
        FunctionCast<GetAddrInfo>(GetProcAddress(library, "getaddrinfo")),
        FunctionCast<GetNameInfo>(GetProcAddress(library, "getnameinfo")),
        FunctionCast<FreeAddrInfo>(GetProcAddress(library, "freeaddrinfo")),
    };
    // The monitor is linked to the socket library, which therefore stays loaded.
    (void)FreeLibrary(library);
    return found.getAddrInfo && found.getNameInfo && found.freeAddrInfo ? found : substitutes;
}
