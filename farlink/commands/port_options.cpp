#include "farlink/commands/port_options.h"

#include "farlink/ports/port_administration.h"

namespace farlink {

namespace {

constexpr int kMostSeconds = 32767;

void AddSeconds(CLI::App& command, const char* name, std::optional<std::uint16_t>& value,
                const char* description)
{
    command.add_option(name, value, description)
        ->check(CLI::Range(1, kMostSeconds))
        ->transform(WithoutLeadingZeros())
        ->type_name("SECONDS");
}

}  // namespace

CLI::Option* AddNumber(CLI::App& command, unsigned& number)
{
    return command
        .add_option("-p,--port", number, "TCP port of the data channel; the command channel is this plus 2")
        ->check(CLI::Range(1, kLastPortNumber))
        ->transform(WithoutLeadingZeros())
        ->type_name("N");
}

void AddKeepAliveOptions(CLI::App& command, KeepAliveOptions& options)
{
    AddSeconds(command, "--period", options.period, "How often a keep-alive goes out");
    AddSeconds(command, "--timeout", options.timeout, "Silence after which the link is given up");
}

}  // namespace farlink
