#pragma once

#include "printserver/course.h"
#include "printserver/events.h"
#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace printserver {

// The printer's answer to a query, from its control id and input.
using QueryAnswer = std::function<Bytes(std::uint32_t control, const Bytes& input)>;

struct PrintServerOptions {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;          // of the data channel; 0: any free pair
    std::filesystem::path folder{};  // for the documents; empty: they stay in memory

    std::string version = "1.10";  // as the reply carries it; empty: old firmware that answers with error 4
    Course course{};
    std::uint16_t firstSession = 1;

    std::optional<Milliseconds> keepAliveEvery{};  // none: the period that the client asks for
    std::optional<Milliseconds>
        clientTimeout{};             // none: the timeout that the client announces, 0 being no limit
    bool dropSilentClients = false;  // a silent client raises ClientSilent in any case, once

    Bytes parallelData{};       // what reads of the parallel interface deliver, piece by piece
    QueryAnswer queryAnswer{};  // none: the input comes back

    Observer observer{};
    // Transcripts, events (so Count and WaitFor of a kind) and settled documents stay readable. A tool that
    // runs for days turns it off and lives by its observer.
    bool keepHistory = true;
};

}  // namespace printserver
