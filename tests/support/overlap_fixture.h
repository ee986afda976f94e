#pragma once

#include <atomic>
#include <thread>

#include "tests/support/printing_fixture.h"

// Calls that overlap on one port, whose print server says nothing of itself.
class OverlapFixture : public Printing {
protected:
    void SetUp() override
    {
        Printing::SetUp();
        ServeByHand(printserver::Lpq(0, printserver::kReceivingData));
    }

    // Runs a call on a thread of its own, as the spooler does.
    template <class Call>
    void Beside(Call call)
    {
        result = -1;
        thread = std::thread([this, call] { result = call() ? 1 : 0; });
    }
    // The call's result; -1 when it never came.
    int Result()
    {
        if (thread.joinable())
            thread.join();
        return result;
    }
    // A read back that the server never answers.
    void BlockAReader()
    {
        server->FaultAt(printserver::Step::ParallelReadReply, printserver::Fault::Drop());
        Beside([this] { return Read(10); });
        ASSERT_TRUE(server->WaitFor(printserver::EventKind::ParallelRead));
    }

    std::thread thread;
    std::atomic<int> result{-1};
};
