#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

// Holds threads up until the test opens it; copies are the same gate. A gate that is never opened lets go
// after a minute, so that a broken test ends.
class Gate {
public:
    void Open() const
    {
        std::lock_guard held(state->lock);
        state->open = true;
        state->changed.notify_all();
    }
    void Pass() const
    {
        std::unique_lock held(state->lock);
        state->arrived++;
        state->changed.notify_all();
        state->changed.wait_for(held, kLimit, [&] { return state->open; });
    }
    // Waits until that many threads have come to the gate. False when they don't.
    bool AwaitArrival(int count = 1) const
    {
        std::unique_lock held(state->lock);
        return state->changed.wait_for(held, kLimit, [&] { return state->arrived >= count; });
    }

private:
    static constexpr std::chrono::seconds kLimit{60};
    struct State {
        std::mutex lock;
        std::condition_variable changed;
        bool open = false;
        int arrived = 0;
    };
    std::shared_ptr<State> state = std::make_shared<State>();
};
