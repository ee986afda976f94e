#pragma once

#include <optional>
#include <string>
#include <vector>

#include "farlink/json_output.h"
#include "farlink/ports/port_administration.h"

// A port with all its settings, and how programs see it.
namespace farlink {

struct PortEntry {
    PortSettings settings;
    KeepAlive keepAlive;
};

// Throws Failure.
PortEntry ReadPort(const WideString& name);

Json JsonOf(const PortEntry& port);

// A port as a file wants it to be. Times that the file leaves out stay as they are, and in a new port are the
// monitor's defaults.
struct WantedPort {
    PortSettings settings;
    std::optional<std::uint16_t> period;
    std::optional<std::uint16_t> timeout;
};

// Of what JsonOf gives, in an array. Throws Failure that names the port and the field.
std::vector<WantedPort> PortsOfJson(const std::string& text);

}  // namespace farlink
