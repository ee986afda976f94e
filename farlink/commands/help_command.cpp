#include <algorithm>
#include <memory>

#include "farlink/commands.h"
#include "farlink/similar_word.h"

namespace farlink {

namespace {

CLI::App* Find(CLI::App& app, const std::string& name)
{
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (command->get_name() == name)
            return command;
    return nullptr;
}

std::vector<std::string> NamesIn(CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(command->get_name());
    return names;
}

// What 'farlink WORDS... --help' prints.
std::string HelpOn(CLI::App& farlink, const std::vector<std::string>& words)
{
    CLI::App* app = &farlink;
    std::string path = farlink.get_name();
    for (const std::string& word : words) {
        CLI::App* const inner = Find(*app, word);
        if (inner == nullptr)
            throw Failure(
                "There is no command '" + word + "' in '" + path + "'" + DidYouMean(word, NamesIn(*app)),
                ExitStatus::Usage);
        app = inner;
        path += " " + word;
    }
    return app->get_formatter()->make_help(app, path, CLI::AppFormatMode::Normal);
}

}  // namespace

void AddHelpCommand(CLI::App& farlink)
{
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* help = farlink.add_subcommand("help", "Tell what a command does and what it takes");
    help->add_option("COMMAND", *words, "The command's words; all commands without any");
    AddExamples(*help, "farlink help\nfarlink help port add");
    help->callback([&farlink, words] { PrintText(HelpOn(farlink, *words)); });
}

}  // namespace farlink
