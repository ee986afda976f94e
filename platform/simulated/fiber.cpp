// A jump to another stack is what the C library's own check takes for a fault.
#undef _FORTIFY_SOURCE

#include "platform/simulated/fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
constexpr bool kChecked = true;
#else
constexpr bool kChecked = false;
static void __sanitizer_start_switch_fiber(void**, const void*, std::size_t) {}
static void __sanitizer_finish_switch_fiber(void*, const void**, std::size_t*) {}
static void __asan_unpoison_memory_region(const void*, std::size_t) {}
#endif

namespace simulated {

namespace {

constexpr std::size_t kStackSize = kChecked ? 512 * 1024 : 128 * 1024;
constexpr std::size_t kGuardSize = 4096;

std::vector<std::byte*> freeStacks;
Fiber* beginning = nullptr;
Fiber* left = nullptr;  // whom the switch under way comes from

std::byte* TakeStack()
{
    if (!freeStacks.empty()) {
        std::byte* const stack = freeStacks.back();
        freeStacks.pop_back();
        __asan_unpoison_memory_region(stack, kStackSize);
        return stack;
    }
    void* const mapped = mmap(nullptr, kStackSize + kGuardSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED || mprotect(mapped, kGuardSize, PROT_NONE) != 0)
        std::abort();
    return static_cast<std::byte*>(mapped) + kGuardSize;
}

}  // namespace

Fiber::Fiber(Body newBody, void* newArgument)
    : body(newBody),
      argument(newArgument),
      stack(TakeStack()),
      hasBegun(false),
      checkedBottom(stack),
      checkedSize(kStackSize)
{
}

Fiber::~Fiber()
{
    if (stack != nullptr)
        freeStacks.push_back(stack);
}

void Fiber::Begin()
{
    Fiber* const self = std::exchange(beginning, nullptr);
    self->Arrive();
    self->body(self->argument);
    std::abort();  // a body doesn't return
}

void Fiber::Leave(bool forGood, Fiber& to)
{
    std::memcpy(static_cast<void*>(&exceptions), abi::__cxa_get_globals(), sizeof exceptions);
    std::memcpy(static_cast<void*>(abi::__cxa_get_globals()), &to.exceptions, sizeof exceptions);
    left = this;
    __sanitizer_start_switch_fiber(forGood ? nullptr : &checkerState, to.checkedBottom, to.checkedSize);
}

// The flow that was there before all fibers learns of its stack when it is left first.
void Fiber::Arrive()
{
    __sanitizer_finish_switch_fiber(checkerState, &left->checkedBottom, &left->checkedSize);
}

// Its frame is never left in good order: what the checker would put around its variables would stay.
[[gnu::no_sanitize_address]] void Fiber::Resume()
{
    if (hasBegun)
        std::longjmp(place, 1);
    hasBegun = true;
    beginning = this;
    ucontext_t context;
    getcontext(&context);
    context.uc_stack.ss_sp = stack;
    context.uc_stack.ss_size = kStackSize;
    context.uc_link = nullptr;
    makecontext(&context, &Fiber::Begin, 0);
    setcontext(&context);
    std::abort();
}

void Fiber::Switch(Fiber& from, Fiber& to)
{
    from.Leave(false, to);
    if (setjmp(from.place) == 0)  // NOLINT(cert-err52-cpp): saves no signal mask, unlike swapcontext
        to.Resume();
    from.Arrive();
}

void Fiber::SwitchForGood(Fiber& from, Fiber& to)
{
    from.Leave(true, to);
    to.Resume();
}

}  // namespace simulated
