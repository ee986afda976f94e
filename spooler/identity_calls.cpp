// RevertToPrinterSelf and ImpersonatePrinterClient. The spooler and its client are one process under one
// user: what is kept is the order of the pairs, thread by thread, so that a monitor which mixes them
// up is told so.

#include <atomic>
#include <cstdint>

#include "spooler/api.h"

namespace spooler {

namespace {

// A token is a place in this thread's stack of reverts: its number, never given twice, above the depth.
constexpr unsigned kThreadShift = 16;
constexpr std::uintptr_t kDepthMask = (std::uintptr_t{1} << kThreadShift) - 1;

std::uintptr_t NextThreadNumber()
{
    static std::atomic<std::uintptr_t> last = 0;
    return ++last;
}

thread_local const std::uintptr_t threadNumber = NextThreadNumber();
thread_local std::uintptr_t depth = 0;

HANDLE TokenAt(std::uintptr_t place)
{
    return reinterpret_cast<HANDLE>((threadNumber << kThreadShift) | place);
}

}  // namespace

SPOOLER_EXPORT HANDLE RevertToPrinterSelf()
{
    return AtTheDoor<HANDLE>(nullptr, [] {
        if (depth == kDepthMask)
            Throw(ERROR_GEN_FAILURE, "Identities are reverted, but never given back.");
        return TokenAt(++depth);
    });
}

SPOOLER_EXPORT BOOL ImpersonatePrinterClient(HANDLE token)
{
    return BoolCall([&] {
        if (depth == 0 || token != TokenAt(depth))
            Throw(ERROR_INVALID_HANDLE, "The token is not the thread's latest.");
        --depth;
    });
}

}  // namespace spooler
