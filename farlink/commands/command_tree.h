#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// What the command line's own definitions tell of its commands, for whatever is made of them: --help, the
// man page and the completion can't differ.
namespace farlink {

struct OptionEntry {
    std::vector<std::string> names;    // "--to"; of a positional one its name, "FILE"
    std::string value;                 // "NAME"; empty for a flag, and for a positional one
    std::vector<std::string> choices;  // the only values, if there are some
    std::string initial;
    std::string description;
    bool isPositional = false;
    bool isRequired = false;
    bool isList = false;
};

struct CommandEntry {
    std::string path;  // "farlink port add"
    std::string description;
    std::vector<std::string> notes;  // examples, exit status and the like, a paragraph each
    std::vector<OptionEntry> options;
    std::vector<CommandEntry> commands;
    bool needsCommand = false;
};

// `app` and all below it, in the order of --help.
CommandEntry ReadCommands(const CLI::App& app, const std::string& parent = "");

// `entry` and all below it, each in front of its own.
std::vector<const CommandEntry*> Flatten(const CommandEntry& entry);

}  // namespace farlink
