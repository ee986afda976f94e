#pragma once

#include <atomic>

// Its fields are the layer's own.
struct CRITICAL_SECTION {
    std::atomic<int> state;    // 0 free, 1 held, 2 held and somebody may be waiting
    int depth;                 // how often its holder has taken it again
    std::atomic<void*> owner;  // names the holding thread
};
