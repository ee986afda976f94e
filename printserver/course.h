#pragma once

#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <cstdint>
#include <optional>

namespace printserver {

// Bound job states below 7 are the simulator's own choice; 7, 8 and 9 are final on every print server.
inline constexpr int kWaiting = 1;
inline constexpr int kReceivingData = 2;
inline constexpr int kPrintingCard = 3;
inline constexpr int kWaitingForCard = 4;
inline constexpr int kFinished = 7;
inline constexpr int kFailed = 8;
inline constexpr int kCancelled = 9;

// How far a job has come, as its command connection sees it.
struct Progress {
    Milliseconds sinceStart{0};              // since the notifications were started
    std::uint64_t received = 0;              // bytes of the document
    std::optional<Milliseconds> sinceEnd{};  // since the orderly end of the data; a reset never sets it
    bool cancelled = false;                  // that end came while the job waited in the queue
};

// The life of every job: queue positions N..1, then 0 and receiving; when the data has ended the wait for a
// card, the printing, and the final state. A job that ends in the queue is cancelled, and one without a byte
// is through at once. The first record answers the start request, each change is one notification.
struct Course {
    int queue = 0;  // first position; 0 takes the data at once
    Milliseconds perPosition{1000};
    Milliseconds cardWait{0};
    Milliseconds printing{0};
    std::optional<int> end = kFinished;               // 7, 8 or 9; none: the job never reaches a final state
    std::optional<std::uint64_t> cancelAfterBytes{};  // state 9 in the middle of the data
    std::uint32_t printerState = 0;

    // Nothing is notified unasked: `byHand` answers the start request, a test sends the rest with Notify().
    std::optional<Lpq> byHand{};

    Lpq RecordAt(const Progress& progress) const;
};

}  // namespace printserver
