#include "farlink/run_tool.h"

#include <exception>
#include <sstream>

#include "farlink/commands.h"
#include "farlink/similar_word.h"
#include "farlink/system_commands.h"
#include "version/build.h"

namespace farlink {

namespace {

// The command that was asked for, as far as the command line came, and its words: "farlink port add".
struct Reached {
    const CLI::App* app;
    std::string path;
};

Reached ReachedBy(const CLI::App& farlink)
{
    Reached reached{&farlink, farlink.get_name()};
    while (!reached.app->get_subcommands().empty()) {
        reached.app = reached.app->get_subcommands().front();
        reached.path += " " + reached.app->get_name();
    }
    return reached;
}

// What could stand in the place of a word that isn't known.
std::vector<std::string> WordsOf(const CLI::App& app)
{
    std::vector<std::string> words;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        words.push_back(command->get_name());
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames())
            words.push_back("--" + name);
    return words;
}

// What the parser says, put so that it names the word that is wrong.
std::string TextOf(const CLI::App& app, const CLI::ParseError& error)
{
    const Reached reached = ReachedBy(app);
    const std::vector<std::string> strangers = app.remaining(true);
    const std::string what = strangers.empty()
                                 ? error.what()
                                 : "'" + strangers.front() + "' is not known in '" + reached.path + "'" +
                                       DidYouMean(strangers.front(), WordsOf(*reached.app));
    return what + "; see '" + reached.path + " --help'";
}

int Fail(const std::string& text, ExitStatus status)
{
    Complain(text);
    return static_cast<int>(status);
}

void Describe(CLI::App& app)
{
    app.set_version_flag("--version", std::string("farlink ") + FarlinkBuild());
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  farlink port add front-desk --server 10.0.0.7 --port 9100\n"
        "  farlink print --to front-desk badge.prn\n"
        "  farlink help COMMAND\n\n" +
        std::string(kStateHelp) + "\n\n" + kExitStatusHelp);
}

int Parse(CLI::App& app, const Run& run, int argc, const char* const* argv)
{
    try {
        app.parse(argc, argv);
        return static_cast<int>(run.status);
    } catch (const CLI::Success& asked) {
        std::ostringstream text;
        const int status = app.exit(asked, text, text);
        PrintText(text.str());
        return status;
    } catch (const CLI::ParseError& error) {
        return Fail(TextOf(app, error), ExitStatus::Usage);
    } catch (const Failure& failure) {
        return Fail(failure.what(), failure.Status());
    } catch (const std::exception& error) {
        return Fail(error.what(), ExitStatus::Failed);
    }
}

}  // namespace

int RunTool(int argc, const char* const* argv)
{
    CLI::App app("Print to network card printers and look after their ports", "farlink");
    Run run;
    Describe(app);
    AddPortCommands(app, run);
    AddSystemCommands(app, run);
    AddKeepAliveCommands(app, run);
    AddStatusCommand(app, run);
    AddLogCommands(app, run);
    AddAboutCommand(app, run);
    AddPrintServerCommand(app, run);
    AddSampleCommand(app);
    AddCompletionCommand(app);
    AddManCommand(app);
    AddHelpCommand(app);
    const int status = Parse(app, run, argc, argv);
    if (OutputIsBroken() && status == static_cast<int>(ExitStatus::Done))
        return Fail("Standard output can't be written: " + OutputError(), ExitStatus::Failed);
    return status;
}

}  // namespace farlink
