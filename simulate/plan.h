#pragma once

// What a run's world is like, drawn before anything happens in it. Each choice is among so many things of
// which the first is the plain one: a run is shrunk by making its choices plain.

#include <functional>

#include "platform/simulated/random.h"
#include "simulate/recipe.h"

class Plan {
public:
    explicit Plan(const Recipe& given) : recipe(given), random(given.seed) {}

    // 0 to count - 1.
    unsigned Choose(unsigned count);
    // True once in so many times.
    bool Sometimes(unsigned oneIn);
    // The plain one, or once in so many times any other.
    unsigned Seldom(unsigned oneIn, unsigned count) { return Sometimes(oneIn) ? 1 + Choose(count - 1) : 0; }
    template <class Value, std::size_t count>
    Value Among(const Value (&values)[count])
    {
        return values[Choose(count)];
    }

    const std::vector<unsigned>& Made() const { return made; }
    std::function<void(unsigned)> onChoice = [](unsigned) {};

    // Something in this world may end a job that is not the job's fault: it need not succeed.
    bool mayFail = false;

private:
    unsigned Take(unsigned drawn, unsigned count);

    const Recipe& recipe;
    simulated::Random random;
    std::vector<unsigned> made;
};
