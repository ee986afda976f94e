#include "link/resolver.h"

#include <atomic>

namespace {

// No static of a function: to guard it, the compiler's runtime would take a thread-local slot of the Windows
// process at each load of the library, and never give it back.
enum class Binding { None, BeingStored, Done };
constinit std::atomic<Binding> gBinding{Binding::None};
CResolver gBound{};

}  // namespace

// Threads that look up at the same time find the same.
CResolver CResolver::Bound()
{
    if (gBinding.load(std::memory_order_acquire) == Binding::Done)
        return gBound;
    const CResolver found = LookUp();
    Binding none = Binding::None;
    if (gBinding.compare_exchange_strong(none, Binding::BeingStored)) {
        gBound = found;
        gBinding.store(Binding::Done, std::memory_order_release);
    }
    return found;
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
