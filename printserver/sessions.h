#pragma once

#include "printserver/server_state.h"

#include <memory>

namespace printserver {

// The freely running server's side of one connection, from accept to end, on the thread that owns the peer.
// Both return when the connection has ended, from whichever side; see Peer::AskToHangUp.
void ServeData(ServerState& state, const std::shared_ptr<Peer>& peer);
void ServeCommand(ServerState& state, const std::shared_ptr<Peer>& peer);

}  // namespace printserver
