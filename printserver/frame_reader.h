#pragma once

#include "printserver/peer.h"
#include "printserver/wire.h"

namespace printserver {

enum class FrameState {
    Frame,      // a whole message
    Nothing,    // the wait ran out
    Malformed,  // no message of this protocol: the type is unknown or the length beyond kMaxPayload
    Over        // the connection has ended, and the peer with it
};

// Gathers the command channel's messages out of whatever pieces arrive, and has them recorded.
// Used by the thread that owns the peer. What is announced costs no memory before it arrives.
class FrameReader {
public:
    explicit FrameReader(Peer& source) : peer(source) {}

    FrameState Next(CommandFrame* frame, Milliseconds wait);

private:
    bool TakeFrame(CommandFrame* frame);
    bool IsMalformed() const;

    Peer& peer;
    Bytes gathered;
};

}  // namespace printserver
