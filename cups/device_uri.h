#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

// A queue's device URI: farlink://HOST:PORT/?keep-alive-period=5&keep-alive-timeout=20&read-back=yes
namespace farlink_cups {

struct DeviceUri {
    std::string host;                     // a name or an IPv4 address, at most 48 characters
    std::uint16_t port = 0;               // of the data channel, 1 to 65533
    std::uint16_t keepAlivePeriod = 5;    // seconds, as are the monitor's own defaults
    std::uint16_t keepAliveTimeout = 20;  // seconds
    bool readBack = false;
};

// The text is a sentence without a full stop, for the person who wrote the URI.
struct BadUri : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws BadUri.
DeviceUri ParseDeviceUri(const std::string& text);

}  // namespace farlink_cups
