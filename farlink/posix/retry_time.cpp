#include "farlink/posix/retry_time.h"

#include <charconv>
#include <cstdint>

#include "farlink/failure.h"

namespace farlink {

namespace {

constexpr std::uint32_t kMostSeconds = 10U * 365 * 86400;

// 0 for a unit that isn't known.
std::uint32_t SecondsOf(const std::string& unit)
{
    if (unit.empty() || unit == "s")
        return 1;
    if (unit == "m" || unit == "min")
        return 60;
    if (unit == "h")
        return 3600;
    return unit == "d" ? 86400 : 0;
}

}  // namespace

std::optional<std::chrono::milliseconds> RetryTime(const std::string& text)
{
    if (text == "forever")
        return std::nullopt;
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const std::uint32_t unit = error == std::errc() ? SecondsOf(std::string(stop, end)) : 0;
    if (unit == 0 || number > kMostSeconds / unit)
        throw Failure("--retry-for: '" + text + "' is no duration; write 90s, 5m, 2h, forever, or 0",
                      ExitStatus::Usage);
    return std::chrono::seconds(std::uint64_t{number} * unit);
}

}  // namespace farlink
