#pragma once

namespace simulated {
struct Thread;
}

struct CRITICAL_SECTION {
    simulated::Thread* owner;
    unsigned depth;      // how often its owner has taken it
    const void* madeAt;  // the code that made it: locks of one kind, for the order of locks
};
