#pragma once

// Who is told of what happens on a command channel by itself. The channel's worker holds a reference to it
// for as long as it runs; otherwise it may go before the channel.
class CChannelOwner {
public:
    // The print server has cancelled the job. On the thread that reads the channel, with its receiveLock
    // and stateLock held.
    virtual void CancelCurrentPrintJob() = 0;

    // Around a worker's whole life: before its thread is made, and when it has let go of its channel.
    virtual void WorkerBegins() = 0;
    virtual void WorkerEnds() = 0;

protected:
    ~CChannelOwner() = default;
};
