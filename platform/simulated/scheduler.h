#pragma once

// The simulated machine: its threads, of which one runs at a time, and its time, which stands still while one
// of them can run and then moves to the next moment at which something happens. A run is a function of what
// it was given: the same order and the same threads give the same run, on every machine.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/simulated/thread.h"

namespace simulated {

class Scheduler {
public:
    explicit Scheduler(Order& order);
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    // The one whose run is under way.
    static Scheduler& Current() { return *current; }
    static bool IsRunning() { return current != nullptr; }

    // Runs `first` on a thread of its own, until all threads have ended or the run has failed. Gives the
    // reason of the failure, or nothing. Threads of a failed run are left where they are.
    std::string Run(const std::function<void()>& first);

    Thread& Start(const std::string& name, Thread::Kind kind, std::function<void()> body);
    Thread& Self() { return *running; }
    Micros Now() const { return now; }
    // What all threads together have been held up so far, and a wait that counts as that.
    Micros Stalled() const { return stalled; }
    void Excuse(Micros length) { stalled += length; }

    // Each call of the layer stands behind one: another thread may go on here.
    void Point(const char* call);
    // Waits until somebody wakes this place, or the time has come. False when the time has come. Who is
    // woken looks again whether he can go on.
    bool Wait(const void* place, Micros until);
    void Wake(const void* place);
    // Does something at a moment, as the world outside does: nothing in it waits.
    void At(Micros when, std::function<void()> action);

    // Ends the run. The reason's first line is what failures are told apart by.
    [[noreturn]] void Fail(const std::string& reason);

    // What every thread is doing, for the story.
    std::string ThreadsAsText() const;
    std::uint64_t OrderSeen() const { return orderSeen; }  // a number for the order of threads so far
    std::uint64_t Points() const { return points; }

private:
    struct Timer {
        Micros when;
        std::uint64_t number;  // those of one moment go off in the order of their making
        Thread* thread;
        std::uint64_t wait;
        std::function<void()> action;
    };
    static bool IsLater(const Timer& left, const Timer& right);

    static void Enter(void* thread);
    void AddTimer(Timer timer);
    void CountPoint();
    void Yield(bool blocks);
    Thread* NextOutside();
    Thread* NextInside(Thread& at, bool blocks);
    void Stall(Thread& thread, Micros length);
    void Advance();
    void CheckBounds();
    void SwitchTo(Thread& next);
    void End();
    void Reap();

    static Scheduler* current;

    Order& order;
    std::vector<std::unique_ptr<Thread>> threads;
    std::vector<Thread*> living;  // by number
    std::vector<Thread*> candidates;
    std::vector<Timer> timers;  // a heap
    Thread* running = nullptr;
    Fiber outside;
    Micros now = 0;
    Micros stalled = 0;
    std::uint64_t timersMade = 0;
    std::uint64_t points = 0;
    std::uint64_t orderSeen = 0;
    std::string failure;
};

}  // namespace simulated
