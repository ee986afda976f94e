#pragma once

#include <optional>
#include <string>

#include "farlink/commands.h"

// Options with which several commands name a port's settings.
namespace farlink {

CLI::Option* AddNumber(CLI::App& command, unsigned& number);

struct KeepAliveOptions {
    std::optional<std::uint16_t> period;
    std::optional<std::uint16_t> timeout;
};
// --period and --timeout, of 1 to 32767 seconds: the monitor takes more for no time at all.
void AddKeepAliveOptions(CLI::App& command, KeepAliveOptions& options);

}  // namespace farlink
