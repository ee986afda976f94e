#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/simulated/fiber.h"
#include "platform/simulated/order.h"

namespace simulated {

// One thread of the simulated process, or something outside of it that acts.
struct Thread {
    enum class Kind {
        Inside,  // of the process: interrupted at each call of the layer
        Outside  // a print server, the network: goes first when a thread waits, and is never interrupted
    };
    enum class State { Ready, Waiting, Ended };
    static constexpr std::size_t kSlots = 8;

    Thread(unsigned itsNumber, std::string itsName, Kind itsKind, std::function<void()> itsBody)
        : number(itsNumber), name(std::move(itsName)), kind(itsKind), body(std::move(itsBody))
    {
    }
    DWORD Id() const { return 0x100 + number * 4; }

    const unsigned number;  // in the order of their starts
    const std::string name;
    const Kind kind;
    const std::function<void()> body;

    State state = State::Ready;
    const char* call = "";     // of the layer, the last that it came to
    std::uint64_t points = 0;  // how many it has passed
    const void* waitsFor = nullptr;
    std::uint64_t wait = 0;  // tells one wait from the next, for timers that come late
    bool isTimedOut = false;
    Micros bound = kForever;  // when what it does now must be over

    DWORD lastError = 0;
    std::array<LPVOID, kSlots> slots{};
    std::vector<CRITICAL_SECTION*> held;  // locks, in the order in which they were taken
    void* work = nullptr;                 // what the world has it do
    std::unique_ptr<Fiber> fiber;
};

}  // namespace simulated
