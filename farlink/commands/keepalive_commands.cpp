#include <memory>

#include "farlink/commands.h"
#include "farlink/commands/port_options.h"
#include "farlink/ports/port_lookup.h"
#include "farlink/ports/port_rules.h"
#include "farlink/ports/port_use.h"

namespace farlink {

namespace {

struct TimesOptions {
    std::string port;
    KeepAliveOptions times;
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

void Set(const Run& run, const TimesOptions& options)
{
    if (!options.times.period && !options.times.timeout)
        throw Failure("Nothing to change: give --period or --timeout", ExitStatus::Usage);
    const WideString port = FindPortByName(options.port);
    KeepAlive values = GetKeepAlive(port);
    values.period = options.times.period.value_or(values.period);
    values.timeout = options.times.timeout.value_or(values.timeout);
    SetKeepAlive(port, values);
    Say(run, GetKeepAlive(port));
    WarnOfShortTimeout(ToUtf8(port), values);
}

}  // namespace

void AddKeepAliveCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<TimesOptions>();
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
    show->callback([&run, options] { Say(run, GetKeepAlive(FindPortByName(options->port))); });

    CLI::App* set = add("set", "Change them, from the next document on; refused while a document prints",
                        "farlink keepalive set front-desk --period 5 --timeout 20");
    set->add_option("NAME", options->port, "The port")->required();
    AddKeepAliveOptions(*set, options->times);
    set->callback([&run, options] { Set(run, *options); });

    CLI::App* defaults = add("defaults", "Show the times that a new port has, or give them back to a port",
                             "farlink keepalive defaults\nfarlink keepalive defaults front-desk");
    defaults->add_option("NAME", options->port, "The port that gets them back");
    defaults->callback([&run, options] {
        const KeepAlive values = GetDefaultKeepAlive();
        if (!options->port.empty())
            SetKeepAlive(FindPortByName(options->port), values);
        Say(run, values);
    });
}

}  // namespace farlink
