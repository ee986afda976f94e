#pragma once

#include "printserver/course.h"
#include "printserver/events.h"
#include "printserver/peer.h"
#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace printserver {

struct ServerState;

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

    // How long a data connection waits for its command connection, and that one for its first requests.
    Milliseconds bindWait{30000};
    // A lost client's connections end one after the other, the data connection first: how long the command
    // connection has to stand after the data's end before the document counts.
    Milliseconds settle{0};
    std::uint64_t bytesPerSecond = 0;  // how fast the data is read; 0: as it comes

    Bytes parallelData{};       // what reads of the parallel interface deliver, piece by piece
    QueryAnswer queryAnswer{};  // none: the input comes back

    Observer observer{};
    // Ended connections, events (so Count and WaitFor of a kind) and settled documents stay readable. A tool
    // that runs for days turns it off and lives by its observer.
    bool keepHistory = true;

    // For tests. The recorder of a connection; and who serves one in the free server's place, on the
    // connection's own thread, from accept to its end: false leaves it to the free server.
    std::function<Recorder(Channel, int number)> recorderFor{};
    std::function<bool(ServerState&, const std::shared_ptr<Peer>&)> serveInstead{};
};

}  // namespace printserver
