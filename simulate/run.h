#pragma once

#include <string>
#include <vector>

#include "simulate/orders.h"
#include "simulate/plan.h"
#include "simulate/recipe.h"
#include "simulate/scene.h"

struct Outcome {
    std::string failure;  // its first line tells failures apart; empty: all held
    std::vector<Interruption> interruptions;
    std::vector<unsigned> choices;
    std::uint64_t order = 0;   // a number for the order of threads
    std::uint64_t digest = 0;  // of the monitor's log
    std::uint64_t points = 0;
    simulated::Micros length = 0;

    std::string Kind() const { return failure.substr(0, failure.find('\n')); }
};

// How a run of this seed is ordered.
Recipe RecipeOf(std::uint64_t seed);

// Plays a scene once, in this process. `story` may be null.
// Whether a run that is told by its interruptions and choices is that run again.
bool IsAsRecorded(const Scene& scene, const Outcome& outcome, std::uint64_t seed);

Outcome RunOnce(const Scene& scene, const Recipe& recipe, std::string* story);
Outcome RunInOrder(const Scene& scene, Plan& plan, std::uint64_t seed, RecordedOrder& order,
                   std::string* story);

// The same in a process of its own, which may die of it.
Outcome RunApart(const Scene& scene, const Recipe& recipe, std::string* story);

// The shortest run that fails in the same way, as far as taking away leads.
Recipe Shrink(const Scene& scene, const Outcome& failed, std::uint64_t seed);
