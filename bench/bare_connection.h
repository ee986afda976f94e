#pragma once

#include <cstddef>
#include <cstdint>

// What the monitor's data path is measured against: a connection to the draining peer, and the system's own
// `send`. Ends the program when that fails: a benchmark has nothing to say without its peer.
class BareConnection {
public:
    BareConnection();  // takes the opening messages off, as the monitor does
    ~BareConnection();
    BareConnection(const BareConnection&) = delete;
    BareConnection& operator=(const BareConnection&) = delete;

    void Send(const void* bytes, std::size_t count) const;

private:
    int socket;
};

// The peer's data port, as the script tells it in FARLINK_BENCH_PEER.
std::uint16_t PeerPort();
