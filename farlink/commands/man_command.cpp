#include <span>

#include "farlink/commands.h"
#include "farlink/commands/command_tree.h"

namespace farlink {

namespace {

constexpr const char* kExamples = "Examples:\n";

// Text as it is: none of it may be taken for a command of the formatter.
std::string Plain(const std::string& text)
{
    std::string plain;
    for (const char letter : text) {
        if ((letter == '.' || letter == '\'') && (plain.empty() || plain.back() == '\n'))
            plain += "\\&";
        if (letter == '\\')
            plain += "\\e";
        else if (letter == '-')
            plain += "\\-";
        else
            plain += letter;
    }
    return plain;
}

std::string Bold(const std::string& text)
{
    return "\\fB" + Plain(text) + "\\fR";
}

std::string Italic(const std::string& text)
{
    return "\\fI" + Plain(text) + "\\fR";
}

std::string NameOf(const OptionEntry& option)
{
    if (option.isPositional)
        return Italic(option.names.front()) + (option.isList ? " ..." : "");
    std::string text;
    for (const std::string& name : option.names)
        text += (text.empty() ? "" : ", ") + Bold(name);
    return text + (option.value.empty() ? "" : " " + Italic(option.value));
}

// Said once, for all commands.
bool IsHelp(const OptionEntry& option)
{
    return option.names.back() == "--help";
}

std::string Synopsis(const CommandEntry& command)
{
    std::string text = Bold(command.path);
    std::string positional;
    for (const OptionEntry& option : command.options) {
        if (IsHelp(option))
            continue;
        std::string& line = option.isPositional ? positional : text;
        line += option.isRequired ? " " + NameOf(option) : " [" + NameOf(option) + "]";
    }
    if (!command.commands.empty())
        positional += command.needsCommand ? " " + Italic("COMMAND") : " [" + Italic("COMMAND") + "]";
    return text + positional;
}

std::string Describe(const OptionEntry& option)
{
    std::string text = ".TP\n" + NameOf(option) + "\n" + Plain(option.description) + ".";
    std::string choices;
    for (const std::string& choice : option.choices)
        choices += (choices.empty() ? " One of " : ", ") + Plain(choice);
    text += choices.empty() ? "" : choices + ".";
    return text + (option.initial.empty() ? "" : " Default: " + Plain(option.initial) + ".") + "\n";
}

std::string Describe(const std::string& note)
{
    if (!note.starts_with(kExamples))
        return ".PP\n" + Plain(note) + "\n";
    return ".PP\nExamples:\n.PP\n.nf\n" + Plain(note.substr(std::char_traits<char>::length(kExamples))) +
           "\n.fi\n";
}

std::string Describe(const CommandEntry& command)
{
    std::string text = ".SS " + Plain(command.path) + "\n" + Synopsis(command) + "\n.PP\n" +
                       Plain(command.description) + ".\n";
    for (const OptionEntry& option : command.options)
        if (!IsHelp(option))
            text += Describe(option);
    for (const std::string& note : command.notes)
        text += Describe(note);
    return text;
}

struct Entry {
    const char* name;
    const char* text;
};

constexpr Entry kVariables[] = {
    {"FARLINK_STATE", "The folder of ports and settings."},
    {"XDG_STATE_HOME",
     "Holds that folder, as farlink, when FARLINK_STATE is not set; else it is ~/.local/state."},
    {"TMPDIR", "Holds the monitor's log file; else it is /tmp."},
    {"FARLINK_DEBUG_OUTPUT",
     "With 1 and 'farlink log level --debug on' the monitor's log lines come on standard error, too."},
};
constexpr Entry kFiles[] = {
    {"~/.local/state/farlink/spooler.db", "Ports and settings; see FARLINK_STATE."},
    {"/tmp/Farlink.log", "The monitor's log, if it is on; see TMPDIR and 'farlink log level'."},
    {"Farlink.ini",
     "Beside the library Farlink.dll, if it is there: the names by which the monitor shows itself."},
};

std::string Describe(std::span<const Entry> entries)
{
    std::string text;
    for (const Entry& entry : entries)
        text += ".TP\n" + Bold(entry.name) + "\n" + Plain(entry.text) + "\n";
    return text;
}

std::string Page(const CLI::App& farlink)
{
    const CommandEntry root = ReadCommands(farlink);
    std::string text = ".TH FARLINK 1\n.SH NAME\nfarlink \\- " + Plain(root.description) +
                       "\n.SH SYNOPSIS\n" + Synopsis(root) + " [" + Bold("--help") + "]" +
                       "\n.SH DESCRIPTION\n" + Plain(root.description) + ".\n";
    for (const std::string& note : root.notes)
        if (note != kExitStatusHelp)
            text += Describe(note);
    text += ".SH OPTIONS\n";
    for (const OptionEntry& option : root.options)
        text += Describe(option);
    text += ".SH COMMANDS\n";
    for (const CommandEntry* command : Flatten(root))
        if (command->commands.empty() || !command->needsCommand)
            text += Describe(*command);
    return text + ".SH EXIT STATUS\n" + Plain(kExitStatusHelp) + "\n.SH ENVIRONMENT\n" +
           Describe(kVariables) + ".SH FILES\n" + Describe(kFiles);
}

}  // namespace

void AddManCommand(CLI::App& farlink)
{
    CLI::App* man = farlink.add_subcommand("man", "Print the manual page");
    AddExamples(*man, "farlink man | man -l -\nfarlink man > /usr/local/share/man/man1/farlink.1");
    man->callback([&farlink] { PrintText(Page(farlink)); });
}

}  // namespace farlink
