#include <memory>

#include "farlink/commands.h"
#include "farlink/commands/command_tree.h"

namespace farlink {

namespace {

constexpr const char* kScriptHead = R"(# Completion of farlink for bash: source <(farlink completion bash)

# The ports, as words that can stand in a command line.
_farlink_ports() {
    local name
    while IFS= read -r name; do
        name=$(printf '%q' "$name")
        [[ $name == "$2"* ]] && COMPREPLY+=("$name")
    done < <("$1" port list 2>/dev/null | sed -nE '2,$s/ {2,}.*//p')
}

_farlink() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} path=farlink i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case "$path ${COMP_WORDS[i]}" in
)";
constexpr const char* kScriptValues = R"() path+=" ${COMP_WORDS[i]}" ;;
        esac
    done
    COMPREPLY=()
    case "$path $previous" in
)";
constexpr const char* kScriptWords = R"(    esac
    case $path in
)";
constexpr const char* kScriptEnd = R"(    esac
}

complete -F _farlink farlink
)";

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

std::string Joined(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

// The shell's command that completes a value; empty where nothing is known of it.
std::string CompleterOf(const OptionEntry& option)
{
    const std::string& kind = option.isPositional ? option.names.front() : option.value;
    if (!option.choices.empty())
        return "COMPREPLY=($(compgen -W " + Quoted(Joined(option.choices)) + " -- \"$current\"))";
    if (kind == "NAME")
        return "_farlink_ports \"${COMP_WORDS[0]}\" \"$current\"";
    if (kind == "FILE")
        return "compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- \"$current\")";
    if (kind == "DIR")
        return "compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- \"$current\")";
    return "";
}

std::string CommandPattern(const std::vector<const CommandEntry*>& commands)
{
    std::string pattern;
    for (const CommandEntry* command : commands)
        if (command != commands.front())
            pattern += (pattern.empty() ? "" : " | ") + Quoted(command->path);
    return pattern;
}

// What may follow an option that takes a value: that value and nothing else.
std::string ValueCases(const CommandEntry& command)
{
    std::string cases;
    for (const OptionEntry& option : command.options) {
        if (option.isPositional || option.value.empty())
            continue;
        const std::string completer = CompleterOf(option);
        const std::string body = ") " + (completer.empty() ? "" : completer + "; ") + "return ;;\n";
        for (const std::string& name : option.names)
            cases.append(8, ' ')
                .append(Quoted(std::string(command.path).append(" ").append(name)))
                .append(body);
    }
    return cases;
}

std::string WordCase(const CommandEntry& command)
{
    std::vector<std::string> words;
    std::string positional;
    for (const CommandEntry& inner : command.commands)
        words.push_back(inner.path.substr(command.path.size() + 1));
    for (const OptionEntry& option : command.options) {
        if (option.isPositional)
            positional += "            [[ $current == -* ]] || { " + CompleterOf(option) + "; }\n";
        else
            words.push_back(option.names.back());
    }
    if (positional.find("{ ; }") != std::string::npos)
        positional.clear();
    return "        " + Quoted(command.path) + ")\n" + positional + "            COMPREPLY+=($(compgen -W " +
           Quoted(Joined(words)) + " -- \"$current\"))\n" + "            ;;\n";
}

std::string Script(const CLI::App& farlink)
{
    const CommandEntry root = ReadCommands(farlink);
    const std::vector<const CommandEntry*> commands = Flatten(root);
    std::string values;
    std::string words;
    for (const CommandEntry* command : commands) {
        values += ValueCases(*command);
        words += WordCase(*command);
    }
    return kScriptHead + std::string(12, ' ') + CommandPattern(commands) + kScriptValues + values +
           kScriptWords + words + kScriptEnd;
}

}  // namespace

void AddCompletionCommand(CLI::App& farlink)
{
    auto shell = std::make_shared<std::string>();
    CLI::App* completion =
        farlink.add_subcommand("completion", "Print a script that completes command lines");
    completion->add_option("SHELL", *shell, "The shell")->required()->check(CLI::IsMember({"bash"}));
    AddExamples(*completion,
                "source <(farlink completion bash)\n"
                "farlink completion bash > ~/.local/share/bash-completion/completions/farlink");
    completion->callback([&farlink, shell] { PrintText(Script(farlink)); });
}

}  // namespace farlink
