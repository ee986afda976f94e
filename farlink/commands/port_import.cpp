#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "farlink/commands.h"
#include "farlink/file_path.h"
#include "farlink/ports/port_entry.h"
#include "farlink/ports/port_rules.h"
#include "farlink/ports/settings_change.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

struct Counts {
    unsigned added = 0;
    unsigned changed = 0;
    unsigned unchanged = 0;
};

std::string ReadAll(const std::string& name)
{
    if (name == "-")
        return {std::istreambuf_iterator<char>(std::cin), {}};
    std::ifstream file(PathOf(name), std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad())
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    return text;
}

bool StoreTimes(const WideString& name, const WantedPort& wanted)
{
    const KeepAlive now = GetKeepAlive(name);
    const KeepAlive times{wanted.period.value_or(now.period), wanted.timeout.value_or(now.timeout)};
    WarnOfShortTimeout(ToUtf8(name), times);
    if (times.period == now.period && times.timeout == now.timeout)
        return false;
    SetKeepAlive(name, times);
    return true;
}

void Take(const WantedPort& wanted, const std::vector<WideString>& present, Counts& counts)
{
    const auto found = std::ranges::find_if(
        present, [&](const WideString& name) { return SameName(name, wanted.settings.name); });
    if (found == present.end()) {
        AddPort(wanted.settings);
        (void)StoreTimes(wanted.settings.name, wanted);
        ++counts.added;
        return;
    }
    PortSettings now = GetPort(*found);
    const bool moves = now.server != wanted.settings.server || now.number != wanted.settings.number;
    if (moves) {
        now.server = wanted.settings.server;
        now.number = wanted.settings.number;
        SetPort(now);
    }
    const bool hasOtherTimes = StoreTimes(*found, wanted);
    ++(moves || hasOtherTimes ? counts.changed : counts.unchanged);
}

void Import(const Run& run, const std::string& file)
{
    const std::vector<WantedPort> ports = PortsOfJson(ReadAll(file));
    Counts counts;
    SettingsChange change;
    const std::vector<WideString> present = ListPorts();
    for (const WantedPort& port : ports)
        Take(port, present, counts);
    change.Commit();
    if (run.json)
        PrintJson({{"added", counts.added}, {"changed", counts.changed}, {"unchanged", counts.unchanged}});
    else
        PrintLine(std::to_string(ports.size()) + " ports: " + std::to_string(counts.added) + " added, " +
                  std::to_string(counts.changed) + " changed, " + std::to_string(counts.unchanged) +
                  " as they were");
}

}  // namespace

void AddPortImport(CLI::App& port, Run& run)
{
    auto file = std::make_shared<std::string>();
    CLI::App* command = port.add_subcommand("import", "Add and change ports until they are as a file says");
    AddJsonFlag(*command, run);
    command->add_option("FILE", *file, "What 'farlink port list --json' printed; - is the standard input")
        ->required();
    AddExamples(*command, "farlink port list --json > ports.json\nfarlink port import ports.json");
    command->footer(
        command->get_footer() +
        "\n\nPorts that the file doesn't name are left alone. When one of the file can't be taken,\n"
        "none is. (On Windows those before it have been taken then: mend the file, and import it\n"
        "again; what is there already stays as it is.)");
    command->callback([&run, file] { Import(run, *file); });
}

}  // namespace farlink
