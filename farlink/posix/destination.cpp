#include "farlink/posix/destination.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <vector>

#include "farlink/failure.h"
#include "spooler/spooler_error.h"

namespace farlink {

namespace {

constexpr int kLargestNumber = 65533;  // the command channel has this number plus 2
constexpr std::size_t kLongestServer = 48;

std::string ChosenName(std::string named)
{
    if (!named.empty())
        return named;
    if (const char* usual = std::getenv("FARLINK_PORT"); usual != nullptr && *usual != 0)
        return usual;
    const std::vector<std::string> ports = spooler::StoredPortNames();
    if (ports.size() == 1)
        return ports.front();
    throw Failure(ports.empty() ? "There is no port yet; add one with 'farlink port add', or print "
                                  "with --to HOST:PORT"
                                : "Which port? There are " + std::to_string(ports.size()) +
                                      "; name one with --to or in FARLINK_PORT",
                  ExitStatus::Usage);
}

std::optional<spooler::PortSettings> HostAndPort(const std::string& name)
{
    const std::size_t colon = name.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon > kLongestServer || name.find(':') != colon)
        return std::nullopt;
    int number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + colon + 1, end, number);
    if (error != std::errc() || stop != end || number < 1 || number > kLargestNumber)
        return std::nullopt;
    const std::string server = name.substr(0, colon);
    if (std::ranges::any_of(server, [](unsigned char letter) { return letter <= ' ' || letter == '/'; }))
        return std::nullopt;
    return spooler::PortSettings{.name = name,
                                 .server = server,
                                 .number = static_cast<WORD>(number),
                                 .keepAlivePeriod = {},
                                 .keepAliveTimeout = {}};
}

bool HasStored(const std::string& name)
{
    try {
        (void)spooler::StoredPort(name);
        return true;
    } catch (const spooler::SpoolerError& error) {
        if (error.word == ERROR_UNKNOWN_PORT)
            return false;
        throw;
    }
}

}  // namespace

Destination::Destination(std::string named)
try : name(ChosenName(std::move(named))) {
    const std::optional<spooler::PortSettings> address = HostAndPort(name);
    isStored = !address || HasStored(name);
    if (!isStored)
        given = *address;
    (void)Settings();
} catch (const spooler::SpoolerError& error) {
    throw PlatformFailure({}, error.word, error.text);
}

spooler::PortSettings Destination::Settings() const
{
    return isStored ? spooler::StoredPort(name) : given;
}

spooler::LogSettings Destination::Log() const
{
    return spooler::StoredLogSettings();
}

}  // namespace farlink
