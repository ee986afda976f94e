#pragma once

#include "printserver/peer.h"

#include <string>
#include <vector>

namespace printserver {

// What went over one connection, message by message, in the order in which the server saw it. A message that
// a fault cut up or changed stands here as it really left. The document's bytes are not kept: see Document.
class Transcript {
public:
    struct Entry {
        Direction direction;
        Bytes bytes;
        bool operator==(const Entry&) const = default;
    };

    void Add(Direction direction, Bytes bytes) { entries.push_back({direction, std::move(bytes)}); }
    const std::vector<Entry>& Entries() const { return entries; }

    // All bytes of one direction in a row.
    Bytes Stream(Direction direction) const;

    // One line per message: "monitor 00000002 00000021 00000020 00000000\nserver 00000002 ...\n".
    std::string ToString() const;

private:
    std::vector<Entry> entries;
};

}  // namespace printserver
