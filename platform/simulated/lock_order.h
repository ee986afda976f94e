#pragma once

#include <string>

namespace simulated {

// The kind of a lock: a number for the place in the code that made it.
int LockKind(const void* madeAt);

// Notes that a lock was taken under another. Kept over all runs of the process: an order that two runs
// contradict is a deadlock that waits for its moment.
void NoteLockOrder(int outer, int inner);

// A circle in the order of locks as text, or nothing. Looks anew only when a pair has come since.
std::string CircleOfLocks();

}  // namespace simulated
