#include <memory>
#include <optional>

#include "farlink/commands.h"
#include "farlink/ports/port_use.h"

namespace farlink {

namespace {

struct KeepAliveOptions {
    std::string port;
    std::optional<std::uint16_t> period;
    std::optional<std::uint16_t> timeout;
};

void Say(const Run& run, KeepAlive values)
{
    if (run.json)
        PrintJson({{"period", values.period}, {"timeout", values.timeout}});
    else
        PrintTable(
            {{"period", std::to_string(values.period) + " s (how often a keep-alive goes out)"},
             {"timeout", std::to_string(values.timeout) + " s (silence after which the link is given up)"}});
}

void Store(const WideString& port, KeepAlive values)
{
    RequireIdle(port);
    SetKeepAlive(port, values);
}

void Set(const Run& run, const KeepAliveOptions& options)
{
    if (!options.period && !options.timeout)
        throw Failure("Nothing to change: give --period or --timeout", ExitStatus::Usage);
    const WideString port = ToUtf16(options.port);
    KeepAlive values = GetKeepAlive(port);
    values.period = options.period.value_or(values.period);
    values.timeout = options.timeout.value_or(values.timeout);
    Store(port, values);
    Say(run, GetKeepAlive(port));
}

void AddSeconds(CLI::App& command, const char* name, std::optional<std::uint16_t>& value,
                const char* description)
{
    command.add_option(name, value, description)->check(CLI::Range(0, 65535))->type_name("SECONDS");
}

}  // namespace

void AddKeepAliveCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<KeepAliveOptions>();
    CLI::App* group = farlink.add_subcommand("keepalive", "Show and change a port's keep-alive times")
                          ->require_subcommand(1);
    AddExamples(*group, "farlink keepalive show front-desk\nfarlink keepalive set front-desk --timeout 60");
    const auto add = [&](const char* name, const char* description, const char* example) {
        CLI::App* command = group->add_subcommand(name, description);
        AddJsonFlag(*command, run);
        AddExamples(*command, example);
        return command;
    };

    CLI::App* show = add("show", "Show a port's keep-alive times", "farlink keepalive show front-desk");
    show->add_option("NAME", options->port, "The port")->required();
    show->callback([&run, options] { Say(run, GetKeepAlive(ToUtf16(options->port))); });

    CLI::App* set = add("set", "Change them, from the next document on; refused while a document prints",
                        "farlink keepalive set front-desk --period 5 --timeout 20");
    set->add_option("NAME", options->port, "The port")->required();
    AddSeconds(*set, "--period", options->period, "How often a keep-alive goes out");
    AddSeconds(*set, "--timeout", options->timeout, "Silence after which the link is given up");
    set->callback([&run, options] { Set(run, *options); });

    CLI::App* defaults = add("defaults", "Show the times that a new port has, or give them back to a port",
                             "farlink keepalive defaults\nfarlink keepalive defaults front-desk");
    defaults->add_option("NAME", options->port, "The port that gets them back");
    defaults->callback([&run, options] {
        const KeepAlive values = GetDefaultKeepAlive();
        if (!options->port.empty())
            Store(ToUtf16(options->port), values);
        Say(run, values);
    });
}

}  // namespace farlink
