#include "farlink/ports/port_rules.h"

#include <algorithm>
#include <string_view>

#include "farlink/failure.h"
#include "farlink/output.h"

namespace farlink {

namespace {

[[noreturn]] void Refuse(const std::string& what)
{
    throw Failure(what, ExitStatus::Usage);
}

bool IsDigit(char letter)
{
    return letter >= '0' && letter <= '9';
}

// Four numbers of 0 to 255 with dots between them.
bool IsAddress(std::string_view text)
{
    int numbers = 0;
    while (true) {
        const std::string_view number = text.substr(0, text.find('.'));
        const bool isNumber = !number.empty() && number.size() <= 3 && std::ranges::all_of(number, IsDigit);
        if (!isNumber || std::stoi(std::string(number)) > 255)
            return false;
        ++numbers;
        if (number.size() == text.size())
            return numbers == 4;
        text.remove_prefix(number.size() + 1);
    }
}

// The host in "http://HOST:N/path" and "HOST:N".
std::string HostIn(std::string text)
{
    if (const std::size_t scheme = text.find("://"); scheme != std::string::npos)
        text.erase(0, scheme + 3);
    return text.substr(0, text.find_first_of(":/"));
}

}  // namespace

void CheckName(const WideString& name)
{
    if (name.empty())
        Refuse("A port name can't be empty");
    // A printer of the port's name couldn't have the first two, a listing couldn't show the others.
    if (std::ranges::any_of(
            name, [](WCHAR unit) { return unit == TEXT(',') || unit == TEXT('\\') || unit < TEXT(' '); }))
        Refuse("A port name can't have a comma, a backslash or a control character");
}

void CheckServer(const std::string& server)
{
    const std::string quoted = "'" + server + "'";
    if (server.empty())
        Refuse("The print server's name can't be empty");
    if (server.find("://") == std::string::npos && std::ranges::count(server, ':') > 1)
        Refuse(quoted +
               " looks like an IPv6 address, and the monitor speaks IPv4; give the print server's IPv4 "
               "address, or a name that has one");
    if (server.find_first_of(":/") != std::string::npos)
        Refuse(quoted + " is more than a host; give the host alone, as in '--server " + HostIn(server) +
               " --port N'");
    if (std::ranges::any_of(server, [](char letter) { return letter >= 0 && letter <= ' '; }))
        Refuse(quoted + " has a blank in it, which no host name has; give a name or an IPv4 address");
    if (server.find_first_not_of("0123456789.") == std::string::npos && !IsAddress(server))
        Refuse(quoted + " is no IPv4 address: that is four numbers of 0 to 255 with dots between them");
}

void WarnOfShortTimeout(const std::string& port, KeepAlive values)
{
    // The monitor counts both with their sign.
    const int period = static_cast<std::int16_t>(values.period);
    const int timeout = static_cast<std::int16_t>(values.timeout);
    if (timeout <= 0 || timeout < 3 * period)
        Complain("Warning: port '" + port + "' gives a link up after " + std::to_string(values.timeout) +
                 " s of silence, with a keep-alive each " + std::to_string(values.period) +
                 " s; a time-out of three periods or more is safe");
}

}  // namespace farlink
