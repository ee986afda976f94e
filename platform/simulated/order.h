#pragma once

// Who decides which thread goes on. At each call of the layer the scheduler asks; an answer that is not the
// plain one (the same thread goes on) is an interruption, and a run is told whole by its interruptions.

#include <cstdint>
#include <span>

namespace simulated {

using Micros = std::uint64_t;
constexpr Micros kMillisecond = 1000;
constexpr Micros kSecond = 1000 * kMillisecond;
constexpr Micros kForever = ~Micros{0};

struct Thread;

struct Decision {
    std::size_t next = 0;  // index into the candidates
    Micros stall = 0;      // and the thread that was running doesn't go on before this has passed
};

class Order {
public:
    virtual ~Order() = default;

    // A thread has begun.
    virtual void Began(Thread& thread) = 0;
    // `at` has come to its next point. False: it goes on, or, when it blocks, the first of the others does.
    virtual bool Interrupts(Thread& at, bool blocks) = 0;
    // The candidates are the threads that can run: first the one at the point unless it blocks, then the
    // others by number, counted on from it.
    virtual Decision Decide(Thread& at, bool blocks, std::span<Thread* const> candidates) = 0;
};

}  // namespace simulated
