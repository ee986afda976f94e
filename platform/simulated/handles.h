#pragma once

#include <cstddef>

namespace simulated {

// Events and threads that somebody has a handle of.
std::size_t OpenHandles();
// At the start of a run, in which nothing of an earlier one is left.
void ForgetHandles();

}  // namespace simulated
