#pragma once

// What makes a run: a seed, from which everything is drawn, or the drawn things themselves, from which
// some may be taken away.

#include <cstdint>
#include <vector>

#include "platform/simulated/order.h"

// At a thread's n-th point another thread went on, or it was held up itself.
struct Interruption {
    unsigned thread = 0;
    std::uint64_t point = 0;
    unsigned next = 0;
    simulated::Micros stall = 0;
};

// Given: exactly the recipe's interruptions and choices.
enum class Orders { Drawn, FewInterruptions, Given };

struct Recipe {
    std::uint64_t seed = 0;
    Orders orders = Orders::Drawn;
    std::vector<Interruption> interruptions{};
    std::vector<unsigned> choices{};  // of the plan; what lies beyond is 0
};
