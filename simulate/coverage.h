#pragma once

#include <cstddef>

// How many places (basic blocks) of the monitor's code the runs of this process have come to.
std::size_t PlacesReached();
