#pragma once

#include <atomic>
#include <stop_token>
#include <thread>

#include "cups/scheduler.h"

// What cupsd and the drivers want of us while a job runs: the signals that end it, and the side channel, each
// served as it comes, on a thread of their own.
namespace farlink_cups {

class Requests {
public:
    // Before any other thread is made: it holds the signals back in all of them.
    Requests(const Scheduler& cupsd, bool readsBack);
    ~Requests();
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    // Asked once the job is to end.
    std::stop_token Stop() const { return stop.get_token(); }
    // Whether a driver wanted that; otherwise it was cupsd: the job is cancelled, or its queue is stopped.
    bool DriverCancelled() const { return driverCancelled; }
    // What drivers are told. Any thread.
    void SetConnected(bool isThere) { connected = isThere; }

private:
    void Serve();
    void TakeSignal();
    bool AnswerSideChannel();
    void DropOutput();

    const Scheduler scheduler;
    const bool bidirectional;
    int signals = -1;  // descriptors
    int ending = -1;
    std::stop_source stop;
    std::atomic<bool> driverCancelled = false;
    std::atomic<bool> connected = false;
    std::thread server;
};

}  // namespace farlink_cups
