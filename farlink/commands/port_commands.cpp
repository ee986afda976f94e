#include <memory>

#include "farlink/commands.h"
#include "farlink/commands/port_options.h"
#include "farlink/ports/port_entry.h"
#include "farlink/ports/port_lookup.h"
#include "farlink/ports/port_rules.h"
#include "farlink/ports/port_use.h"
#include "farlink/ports/settings_change.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

struct PortOptions {
    std::vector<std::string> names;
    std::string server;
    unsigned number = 0;
    KeepAliveOptions keepAlive;
};

void Say(const Run& run, const PortEntry& port, const std::string& text)
{
    if (run.json)
        PrintJson(JsonOf(port));
    else
        PrintLine("Port '" + ToUtf8(port.settings.name) + "' " + text);
}

void SayWhereTo(const Run& run, const PortEntry& port)
{
    Say(run, port, "prints to " + ToUtf8(port.settings.server) + ":" + std::to_string(port.settings.number));
    WarnOfShortTimeout(ToUtf8(port.settings.name), port.keepAlive);
}

void StoreKeepAlive(const WideString& port, const KeepAliveOptions& options)
{
    if (!options.period && !options.timeout)
        return;
    KeepAlive values = GetKeepAlive(port);
    values.period = options.period.value_or(values.period);
    values.timeout = options.timeout.value_or(values.timeout);
    SetKeepAlive(port, values);
}

void Add(Run& run, const PortOptions& options)
{
    const PortSettings port{ToUtf16(options.names.front()), ToUtf16(options.server),
                            static_cast<std::uint16_t>(options.number)};
    CheckName(port.name);
    CheckServer(options.server);
    SettingsChange change;
    AddPort(port);
    StoreKeepAlive(port.name, options.keepAlive);
    change.Commit();
    SayWhereTo(run, ReadPort(port.name));
}

void SetOne(Run& run, const PortOptions& options, const WideString& name)
{
    PortSettings port = GetPort(name);
    SettingsChange change;
    if (!options.server.empty())
        port.server = ToUtf16(options.server);
    if (options.number != 0)
        port.number = static_cast<std::uint16_t>(options.number);
    if (!options.server.empty() || options.number != 0)
        SetPort(port);
    StoreKeepAlive(name, options.keepAlive);
    change.Commit();
    SayWhereTo(run, ReadPort(name));
}

void Set(Run& run, const PortOptions& options)
{
    const bool keepsAll = options.server.empty() && options.number == 0;
    if (keepsAll && !options.keepAlive.period && !options.keepAlive.timeout)
        throw Failure("Nothing to change: give --server, --port, --period or --timeout", ExitStatus::Usage);
    if (!options.server.empty())
        CheckServer(options.server);
    ForEach(run, options.names, [&](const std::string& name) { SetOne(run, options, FindPortByName(name)); });
}

void ShowOne(const Run& run, const PortEntry& port)
{
    if (run.json) {
        PrintJson(JsonOf(port));
        return;
    }
    const std::uint16_t number = port.settings.number;
    PrintTable({{"name", ToUtf8(port.settings.name)},
                {"server", ToUtf8(port.settings.server)},
                {"port", std::to_string(number) + " (data), " + std::to_string(number + 2) + " (commands)"},
                {"keep-alive", "period " + std::to_string(port.keepAlive.period) + " s, timeout " +
                                   std::to_string(port.keepAlive.timeout) + " s"}});
}

void Show(Run& run, const PortOptions& options)
{
    ForEach(run, options.names,
            [&](const std::string& name) { ShowOne(run, ReadPort(FindPortByName(name))); });
}

void List(Run& run, const PortOptions&)
{
    Json ports = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const WideString& name : ListPorts()) {
        const PortEntry port = ReadPort(name);
        ports.push_back(JsonOf(port));
        rows.push_back(
            {ToUtf8(port.settings.name), ToUtf8(port.settings.server), std::to_string(port.settings.number)});
    }
    if (run.json) {
        PrintJson(ports);
    } else if (rows.empty()) {
        PrintLine("No ports. 'farlink port add NAME --server HOST --port N' makes one.");
    } else {
        rows.insert(rows.begin(), {"NAME", "SERVER", "PORT"});
        PrintTable(rows);
    }
}

void Delete(Run& run, const PortOptions& options)
{
    ForEach(run, options.names, [&](const std::string& name) {
        const PortEntry port = ReadPort(FindPortByName(name));
        FreeOfPrinters(port.settings.name, "Port '" + ToUtf8(port.settings.name) + "'");
        DeletePort(port.settings.name);
        Say(run, port, "is deleted");
    });
}

}  // namespace

void AddPortCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<PortOptions>();
    CLI::App* port = farlink.add_subcommand("port", "Add, list, show, change, delete and import ports")
                         ->require_subcommand(1);
    AddExamples(*port, "farlink port add front-desk --server 10.0.0.7 --port 9100\nfarlink port list");
    using Action = void (*)(Run&, const PortOptions&);
    const auto add = [&](const char* name, const char* description, Action action, const char* examples) {
        CLI::App* command = port->add_subcommand(name, description);
        AddJsonFlag(*command, run);
        AddExamples(*command, examples);
        command->callback([&run, options, action] { action(run, *options); });
        return command;
    };
    const auto addNames = [&](CLI::App* command) {
        command->add_option("NAME", options->names, "The port; several may be given")->required();
    };
    const auto addServer = [&](CLI::App* command) {
        return command
            ->add_option("-s,--server", options->server,
                         "The print server's name or IPv4 address, at most 48 characters")
            ->type_name("HOST");
    };

    CLI::App* command = add("add", "Make a port: a name for a print server and its TCP port", Add,
                            "farlink port add front-desk --server 10.0.0.7 --port 9100\n"
                            "farlink port add badges -s cards.example.com -p 9100 --timeout 60");
    command->add_option("NAME", options->names, "The new port's name, at most 65 characters")
        ->required()
        ->expected(1);
    addServer(command)->required();
    AddNumber(*command, options->number)->required();
    AddKeepAliveOptions(*command, options->keepAlive);

    add("list", "List the ports by name; in JSON with all that 'farlink port import' reads", List,
        "farlink port list\nfarlink port list --json > ports.json");
    addNames(add("show", "Show a port's settings", Show, "farlink port show front-desk"));

    command = add("set", "Change a port; refused while a document prints on it", Set,
                  "farlink port set front-desk --server 10.0.0.8\n"
                  "farlink port set front-desk back-office --timeout 60");
    addNames(command);
    addServer(command);
    AddNumber(*command, options->number);
    AddKeepAliveOptions(*command, options->keepAlive);

    addNames(add("delete", "Delete a port; on Windows, one that no printer is on", Delete,
                 "farlink port delete front-desk"));
    AddPortImport(*port, run);
}

}  // namespace farlink
