#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"
#include "platform/simulated/order.h"

// One attempt to print a job, or one talk to a printer in channel mode: what the spooler asked for, and what
// the print server knows of it. Connections and printer handles carry its number.
struct Document {
    std::uint64_t number = 0;
    DWORD job = 0;
    bool inChannelMode = false;
    std::size_t size = 0;

    // The bytes of a job: no two jobs have the same.
    static char ByteAt(DWORD job, std::size_t at)
    {
        return static_cast<char>(job * 37 + at * 11 + (at >> 8) * 5);
    }
    static std::string Bytes(DWORD job, std::size_t from, std::size_t count)
    {
        std::string bytes(count, '\0');
        for (std::size_t i = 0; i < count; ++i)
            bytes[i] = ByteAt(job, from + i);
        return bytes;
    }

    // At the spooler.
    simulated::Micros begun = 0;
    bool isOpen = false;       // started, and no end has begun
    bool isSecondRun = false;  // of a job that the monitor had restarted
    bool isEnded = false;
    bool isOvertaken = false;  // another has begun on its port
    bool hasAskedForPrinter = false;
    bool endHasIt = false;  // the call that ends it is at work on it
    bool wasSent = false;
    bool wasRestarted = false;
    bool wasDeleted = false;

    // At the print server.
    std::size_t received = 0;
    bool isWhole = false;        // the data ended in order
    bool isTalkedOver = false;   // it sent more after the end; its system drops the document for that
    bool saidFinal = false;      // 7, 8 or 9 has left
    bool saidCancelled = false;  // 9
};
