#pragma once

#include <optional>

#include "simulate/call.h"
#include "simulate/print_server.h"

// A port with its print server, and what a spooler does with a document on it. Each call may come from any
// thread; `document` is the one that the spooler means.
class Port {
public:
    Port(World& world, unsigned number, Plan& plan);

    bool Start(Document& document);
    // Gives what was taken; nothing when the call failed.
    std::optional<DWORD> Write(Document& document, std::size_t from, std::size_t count);
    bool Read(Document& document);
    bool Query(Document& document);
    void End(Document& document);

    // Print a whole job as a spooler does: again when the monitor asks for it, until it is sent or deleted.
    void Print(DWORD job, std::size_t size);
    // One attempt from its start to its end. False when it was not started.
    bool PrintOnce(Document& document);

    const WideString name;
    HANDLE handle = nullptr;
    PrintServer server;
    DWORD lastRestarted = 0;  // as the monitor remembers it

private:
    bool MustSucceed(const Document& document) const;
    void WriteAndEnd(Document& document);

    World& world;
    Document* latest = nullptr;
};
