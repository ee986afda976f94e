#include <algorithm>
#include <memory>

#include "farlink/commands.h"
#include "farlink/ports/port_use.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

// The command channel is the number plus 2, so the last two numbers serve no port.
constexpr unsigned kLastPortNumber = 65533;

struct PortOptions {
    std::string name;
    std::string server;
    unsigned number = 0;
};

Json JsonOf(const PortSettings& port)
{
    return {{"name", ToUtf8(port.name)}, {"server", ToUtf8(port.server)}, {"port", port.number}};
}

void Say(const Run& run, const PortSettings& port, const std::string& text)
{
    if (run.json)
        PrintJson(JsonOf(port));
    else
        PrintLine(text);
}

std::string AddressOf(const PortSettings& port)
{
    return ToUtf8(port.server) + ":" + std::to_string(port.number);
}

void CheckName(const WideString& name)
{
    if (name.empty())
        throw Failure("A port name can't be empty", ExitStatus::Usage);
    // A printer of the port's name couldn't have the first two, a listing couldn't show the others.
    if (std::ranges::any_of(
            name, [](WCHAR unit) { return unit == TEXT(',') || unit == TEXT('\\') || unit < TEXT(' '); }))
        throw Failure("A port name can't have a comma, a backslash or a control character",
                      ExitStatus::Usage);
}

void Add(const Run& run, const PortOptions& options)
{
    const PortSettings port{ToUtf16(options.name), ToUtf16(options.server),
                            static_cast<std::uint16_t>(options.number)};
    CheckName(port.name);
    if (port.server.empty())
        throw Failure("The print server's name can't be empty", ExitStatus::Usage);
    AddPort(port);
    Say(run, port, "Port '" + options.name + "' prints to " + AddressOf(port));
}

void Set(const Run& run, const PortOptions& options)
{
    if (options.server.empty() && options.number == 0)
        throw Failure("Nothing to change: give --server or --port", ExitStatus::Usage);
    PortSettings port = GetPort(ToUtf16(options.name));
    RequireIdle(port.name);
    if (!options.server.empty())
        port.server = ToUtf16(options.server);
    if (options.number != 0)
        port.number = static_cast<std::uint16_t>(options.number);
    SetPort(port);
    Say(run, port, "Port '" + ToUtf8(port.name) + "' prints to " + AddressOf(port));
}

void Show(const Run& run, const PortOptions& options)
{
    const PortSettings port = GetPort(ToUtf16(options.name));
    if (run.json)
        PrintJson(JsonOf(port));
    else
        PrintTable({{"name", ToUtf8(port.name)},
                    {"server", ToUtf8(port.server)},
                    {"port", std::to_string(port.number) + " (data), " + std::to_string(port.number + 2) +
                                 " (commands)"}});
}

void List(const Run& run)
{
    Json ports = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const WideString& name : ListPorts()) {
        const PortSettings port = GetPort(name);
        ports.push_back(JsonOf(port));
        rows.push_back({ToUtf8(port.name), ToUtf8(port.server), std::to_string(port.number)});
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

void Delete(const Run& run, const PortOptions& options)
{
    const PortSettings port = GetPort(ToUtf16(options.name));
    FreeOfPrinters(port.name, "Port '" + options.name + "'");
    DeletePort(port.name);
    Say(run, port, "Port '" + ToUtf8(port.name) + "' is deleted");
}

CLI::Option* AddNumber(CLI::App& command, PortOptions& options)
{
    return command
        .add_option("--port", options.number,
                    "TCP port of the data channel; the command channel is this plus 2")
        ->check(CLI::Range(1U, kLastPortNumber))
        ->type_name("N");
}

}  // namespace

void AddPortCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<PortOptions>();
    CLI::App* port =
        farlink.add_subcommand("port", "Add, list, show, change and delete ports")->require_subcommand(1);
    AddExamples(*port, "farlink port add front-desk --server 10.0.0.7 --port 9100\nfarlink port list");
    using Action = void (*)(const Run&, const PortOptions&);
    const auto add = [&](const char* name, const char* description, Action action, const char* examples) {
        CLI::App* command = port->add_subcommand(name, description);
        AddJsonFlag(*command, run);
        AddExamples(*command, examples);
        command->callback([&run, options, action] { action(run, *options); });
        return command;
    };

    CLI::App* command = add("add", "Make a port: a name for a print server and its TCP port", Add,
                            "farlink port add front-desk --server 10.0.0.7 --port 9100\n"
                            "farlink port add badges --server cards.example.com --port 9100 --json");
    command->add_option("NAME", options->name, "The new port's name, at most 65 characters")->required();
    command
        ->add_option("--server", options->server, "The print server's name or address, at most 48 characters")
        ->required()
        ->type_name("HOST");
    AddNumber(*command, *options)->required();

    add(
        "list", "List the ports by name", [](const Run& now, const PortOptions&) { List(now); },
        "farlink port list\nfarlink port list --json");

    command = add("show", "Show one port's settings", Show, "farlink port show front-desk");
    command->add_option("NAME", options->name, "The port")->required();

    command = add("set", "Change a port's print server; refused while a document prints on it", Set,
                  "farlink port set front-desk --server 10.0.0.8\nfarlink port set front-desk --port 9200");
    command->add_option("NAME", options->name, "The port")->required();
    command->add_option("--server", options->server, "The print server's name or address")->type_name("HOST");
    AddNumber(*command, *options);

    command = add("delete", "Delete a port that has no jobs; on Windows, one that no printer is on", Delete,
                  "farlink port delete front-desk");
    command->add_option("NAME", options->name, "The port")->required();
}

}  // namespace farlink
