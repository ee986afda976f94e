#pragma once

#include <optional>
#include <string>
#include <vector>

namespace posix_layer {

// The dotted addresses that a test has ordered for a name; nothing when it has ordered none.
std::optional<std::vector<std::string>> OrderedResolution(const char* name);

}  // namespace posix_layer
