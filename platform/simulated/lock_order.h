#pragma once

#include <string>

namespace simulated {

// Notes that a lock was taken under another. A lock's kind is the place in the code that made it. Kept over
// all runs of the process: an order that two runs contradict is a deadlock that waits for its moment.
void NoteLockOrder(const void* outer, const void* inner);

// A circle in the order of locks as text, or nothing. Looks anew only when a pair has come since.
std::string CircleOfLocks();

}  // namespace simulated
