#pragma once

// What has to be true at every step of every run, whatever happens in it.

#include <array>
#include <map>
#include <vector>

#include "platform/simulated/network.h"
#include "simulate/document.h"

class World;

// A call of the spooler's into the monitor that is under way on a thread.
struct CallUnderWay {
    const char* function;
    Document* document;  // null: none in particular
    simulated::Micros begun;
    CallUnderWay* outer;
    std::size_t locksHeld;                                // by the thread when it began
    std::array<LPVOID, simulated::Thread::kSlots> slots;  // of the thread: its log's indentation and tag
};

class Checks {
public:
    explicit Checks(World& its) : world(its) {}

    // A thread of the process uses a connection.
    void ConnectionUsed(simulated::Endpoint& connection, simulated::Network::Use use);
    // At the print server: they are the document's bytes, in their order.
    void DataArrived(const Document& document, std::size_t at, const char* bytes, std::size_t count);
    // The monitor tells the spooler something about a job, by the printer handle of a document.
    void JobCommand(Document& document, DWORD job, DWORD command);
    // The call is over: the thread holds the locks and its log has the margin that they had at the begin.
    void CallEnded(const CallUnderWay& ended);
    void DocumentEnded(const Document& document);
    // Everybody has gone: nothing is left of the documents; and after the monitor's end, of the monitor.
    void IsIdle();
    void IsGone();

private:
    std::uint64_t& WorkedFor();
    void Require(bool holds, const std::string& complaint);

    World& world;
    std::map<unsigned, std::uint64_t> workedFor;  // by thread: whose connection it used last
};
