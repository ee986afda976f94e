#include "farlink/commands/command_tree.h"

#include <algorithm>

namespace farlink {

namespace {

std::vector<std::string> Split(const std::string& text, const std::string& separator)
{
    std::vector<std::string> parts;
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t end = std::min(text.find(separator, from), text.size());
        if (end > from)
            parts.push_back(text.substr(from, end - from));
        from = end + separator.size();
    }
    return parts;
}

// "SWITCH:{on,off}": the checks of a value are part of its type's name.
std::vector<std::string> ChoicesOf(const std::string& type)
{
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}', open);
    if (open == std::string::npos || close == std::string::npos)
        return {};
    return Split(type.substr(open + 1, close - open - 1), ",");
}

OptionEntry Read(const CLI::Option& option)
{
    OptionEntry entry;
    const std::string type = option.get_type_name();
    entry.isPositional = option.nonpositional() == false;
    for (const std::string& name : option.get_snames())
        entry.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        entry.names.push_back("--" + name);
    if (entry.isPositional)
        entry.names = {option.get_name(true)};
    else if (option.get_items_expected_max() > 0)
        entry.value = type.substr(0, type.find(':'));
    entry.choices = ChoicesOf(type);
    entry.initial = option.get_default_str();
    entry.description = option.get_description();
    entry.isRequired = option.get_required();
    entry.isList = option.get_expected_max() > 1;
    return entry;
}

}  // namespace

CommandEntry ReadCommands(const CLI::App& app, const std::string& parent)
{
    CommandEntry entry;
    entry.path = parent.empty() ? app.get_name() : parent + " " + app.get_name();
    entry.description = app.get_description();
    entry.notes = Split(app.get_footer(), "\n\n");
    entry.needsCommand = app.get_require_subcommand_min() > 0;
    for (const CLI::Option* option : app.get_options())
        entry.options.push_back(Read(*option));
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        entry.commands.push_back(ReadCommands(*command, entry.path));
    return entry;
}

std::vector<const CommandEntry*> Flatten(const CommandEntry& entry)
{
    std::vector<const CommandEntry*> all = {&entry};
    for (const CommandEntry& command : entry.commands)
        for (const CommandEntry* each : Flatten(command))
            all.push_back(each);
    return all;
}

}  // namespace farlink
