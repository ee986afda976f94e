#pragma once

// The orders in which threads are run, and the record of what they decided.

#include <functional>
#include <memory>
#include <vector>

#include "platform/simulated/random.h"
#include "platform/simulated/thread.h"
#include "simulate/recipe.h"

// An order that keeps what it decided.
class RecordedOrder : public simulated::Order {
public:
    simulated::Decision Decide(simulated::Thread& at, bool blocks,
                               std::span<simulated::Thread* const> candidates) final;
    const std::vector<Interruption>& Decisions() const { return decisions; }
    // Told of each at once, for a run that the process doesn't survive.
    std::function<void(const Interruption&)> onDecision = [](const Interruption&) {};

protected:
    virtual simulated::Decision Draw(simulated::Thread& at, bool blocks,
                                     std::span<simulated::Thread* const> candidates) = 0;

private:
    std::vector<Interruption> decisions;
};

// `recipe` outlives the order.
std::unique_ptr<RecordedOrder> MakeOrder(const Recipe& recipe);
