#pragma once

#include <functional>

namespace farlink_cups {

// Sent to the working process when the one above it is gone.
extern const int kAbandoned;

// Runs `work` in a process of its own and gives the exit status that cupsd is to see. cupsd takes a backend
// that was killed for one that has printed its job: so the process that it knows only looks after the one
// that works, passes on SIGTERM, and has the job tried again when that one is killed.
int Supervise(const std::function<int()>& work);

}  // namespace farlink_cups
