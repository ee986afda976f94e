#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace farlink {

// "0", "90", "90s", "5m", "2h", "1d"; "forever" is none. Throws Failure (Usage) for anything else.
std::optional<std::chrono::milliseconds> RetryTime(const std::string& text);

}  // namespace farlink
