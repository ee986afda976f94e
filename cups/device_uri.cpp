#include "cups/device_uri.h"

#include <cups/http.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace farlink_cups {

namespace {

constexpr char kShape[] = "farlink://HOST:PORT/";
constexpr std::size_t kLongestHost = 48;
constexpr int kHighestPort = 65533;  // the command channel is 2 above
constexpr std::uint16_t kLongestTime = 32767;

[[noreturn]] void Refuse(const std::string& fault, const std::string& remedy)
{
    throw BadUri("the queue's device URI " + fault + "; " + remedy);
}

struct Parts {
    std::array<char, HTTP_MAX_URI> scheme, user, host, resource;
    int port = 0;
};

Parts Separate(const std::string& text)
{
    Parts parts;
    const http_uri_status_t status = httpSeparateURI(
        HTTP_URI_CODING_ALL, text.c_str(), parts.scheme.data(), HTTP_MAX_URI, parts.user.data(), HTTP_MAX_URI,
        parts.host.data(), HTTP_MAX_URI, &parts.port, parts.resource.data(), HTTP_MAX_URI);
    if (status < HTTP_URI_STATUS_OK)
        Refuse("can't be read (" + std::string(httpURIStatusString(status)) + ")",
               "it looks like " + std::string(kShape));
    return parts;
}

bool IsNameUnit(char unit)
{
    return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') ||
           unit == '-' || unit == '.' || unit == '_';
}

std::string HostOf(const Parts& parts)
{
    const std::string host = parts.host.data();
    if (host.empty())
        Refuse("names no print server", "it looks like " + std::string(kShape));
    if (host.find(':') != std::string::npos)
        Refuse("has an IPv6 address", "give the print server's name or its IPv4 address");
    if (host.size() > kLongestHost)
        Refuse("has a print server's name of more than 48 characters", "give its IPv4 address");
    if (!std::ranges::all_of(host, IsNameUnit))
        Refuse("has '" + host + "' where the print server stands", "give its name or its IPv4 address");
    return host;
}

std::uint16_t PortOf(const Parts& parts)
{
    if (parts.port <= 0)
        Refuse("has no port", "give the print server's TCP port, as in " + std::string(kShape));
    if (parts.port > kHighestPort)
        Refuse("has the port " + std::to_string(parts.port), "the highest is 65533");
    return static_cast<std::uint16_t>(parts.port);
}

std::uint16_t Seconds(const std::string& name, std::string_view value)
{
    std::uint16_t seconds = 0;
    const auto [end, error] = std::from_chars(value.begin(), value.end(), seconds);
    if (error != std::errc() || end != value.end() || seconds == 0 || seconds > kLongestTime)
        Refuse("has '" + std::string(value) + "' as " + name, "give it in seconds, 1 to 32767");
    return seconds;
}

void SetOption(DeviceUri& uri, const std::string& name, std::string_view value)
{
    if (name == "keep-alive-period")
        uri.keepAlivePeriod = Seconds(name, value);
    else if (name == "keep-alive-timeout")
        uri.keepAliveTimeout = Seconds(name, value);
    else if (name == "read-back" && (value == "yes" || value == "no"))
        uri.readBack = value == "yes";
    else if (name == "read-back")
        Refuse("has '" + std::string(value) + "' as read-back", "give yes or no");
    else
        Refuse("has the option '" + name + "'",
               "there are keep-alive-period, keep-alive-timeout and read-back");
}

// What stands behind the server: nothing, or the options.
void SetOptions(DeviceUri& uri, std::string_view resource)
{
    const std::string_view path = resource.substr(0, resource.find('?'));
    if (!path.empty() && path != "/")
        Refuse("has the path '" + std::string(path) + "'", "a print server has none");
    resource.remove_prefix(std::min(path.size() + 1, resource.size()));
    while (!resource.empty()) {
        const std::string_view option = resource.substr(0, resource.find('&'));
        resource.remove_prefix(std::min(option.size() + 1, resource.size()));
        const std::string_view name = option.substr(0, option.find('='));
        SetOption(uri, std::string(name), option.substr(std::min(name.size() + 1, option.size())));
    }
    if (uri.keepAliveTimeout <= uri.keepAlivePeriod)
        Refuse("has a keep-alive-timeout that isn't longer than the keep-alive-period",
               "three periods at least are of use");
}

}  // namespace

DeviceUri ParseDeviceUri(const std::string& text)
{
    const Parts parts = Separate(text);
    if (std::string_view(parts.scheme.data()) != "farlink")
        Refuse("begins with '" + std::string(parts.scheme.data()) + "'",
               "it looks like " + std::string(kShape));
    if (parts.user[0] != 0)
        Refuse("names a user", "a print server knows none");
    DeviceUri uri;
    uri.host = HostOf(parts);
    uri.port = PortOf(parts);
    SetOptions(uri, parts.resource.data());
    return uri;
}

}  // namespace farlink_cups
