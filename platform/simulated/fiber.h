#pragma once

// A flow of control with a stack of its own. All fibers run on the one thread of the process that made them;
// a switch takes some ten nanoseconds.

#include <csetjmp>
#include <cstddef>

namespace simulated {

class Fiber {
public:
    using Body = void (*)(void*);

    // The flow that is running already; it has its stack.
    Fiber() = default;
    // `body` runs at the first switch to the fiber. It doesn't return: its last act is SwitchForGood.
    Fiber(Body body, void* argument);
    // The stack goes back to the pool. What an abandoned fiber had on it is never destroyed.
    ~Fiber();
    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    // Goes on with another fiber; returns when somebody switches back.
    static void Switch(Fiber& from, Fiber& to);
    [[noreturn]] static void SwitchForGood(Fiber& from, Fiber& to);

private:
    struct ExceptionState {  // what the language keeps per thread of exceptions on their way
        void* caught = nullptr;
        unsigned uncaught = 0;
    };

    void Leave(bool forGood, Fiber& to);
    void Arrive();
    [[noreturn]] void Resume();
    static void Begin();

    Body body = nullptr;
    void* argument = nullptr;
    std::byte* stack = nullptr;
    bool hasBegun = true;
    std::jmp_buf place{};
    ExceptionState exceptions;
    void* checkerState = nullptr;  // the address sanitizer's
    const void* checkedBottom = nullptr;
    std::size_t checkedSize = 0;
};

}  // namespace simulated
