#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include "farlink/commands.h"
#include "farlink/commands/printserver_check_command.h"
#include "farlink/commands/printserver_lines.h"
#include "farlink/file_path.h"
#include "farlink/interrupts.h"
#include "printserver/fault_text.h"
#include "printserver/server.h"

namespace farlink {

namespace {

struct ServerOptions {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;
    std::string folder;
    std::string version = "1.10";
    int queue = 0;
    double seconds = 1;
    double cardWait = 0;
    double printing = 0;
    std::string end = "finished";
    std::uint64_t rate = 0;
    std::string readBack;
    std::vector<std::string> faults;
    int documents = 0;
};

// A client that is lost closes its two connections one after the other.
constexpr printserver::Milliseconds kSettle{500};

printserver::Milliseconds Span(double seconds)
{
    return printserver::Milliseconds(std::llround(seconds * 1000));
}

printserver::PrintServerOptions ServerOptionsOf(const ServerOptions& options)
{
    printserver::PrintServerOptions server;
    server.address = options.address;
    server.port = options.port;
    server.folder = PathOf(options.folder);
    server.version = options.version == "none" ? "" : options.version;
    server.course.queue = options.queue;
    server.course.perPosition = Span(options.seconds);
    server.course.cardWait = Span(options.cardWait);
    server.course.printing = Span(options.printing);
    if (options.end == "never")
        server.course.end.reset();
    else
        server.course.end = options.end == "finished" ? printserver::kFinished
                            : options.end == "failed" ? printserver::kFailed
                                                      : printserver::kCancelled;
    server.bytesPerSecond = options.rate;
    server.parallelData = printserver::Text(options.readBack);
    server.settle = kSettle;
    server.dropSilentClients = true;
    server.keepHistory = false;
    return server;
}

class Serving {
public:
    Serving(const ServerOptions& options, bool json)
        : wanted(options.documents), server(Prepared(options, json))
    {
        const std::string& folder = options.folder;
        for (const std::string& text : options.faults) {
            const printserver::PlannedFault planned = printserver::ParseFault(text);
            server.FaultAt(planned.step, planned.fault, planned.occurrence);
        }
        if (json)
            PrintJsonLine({{"event", "listening"},
                           {"address", options.address},
                           {"port", server.Port()},
                           {"folder", folder}});
        else
            PrintLine("Listening on " + options.address + " port " + std::to_string(server.Port()) +
                      " (data) and " + std::to_string(server.Port() + 2) + " (commands); documents go to " +
                      folder);
    }

    void UntilTheEnd() const
    {
        while (!InterruptAsked() && !EndAsked() && !HasEnough())
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

private:
    printserver::PrintServerOptions Prepared(const ServerOptions& options, bool json)
    {
        printserver::PrintServerOptions prepared = ServerOptionsOf(options);
        prepared.observer = [this, json](const printserver::Event& event) {
            TellEvent(event, json);
            if (event.kind == printserver::EventKind::DocumentComplete)
                ++complete;
        };
        return prepared;
    }

    // The monitor hangs up when it has heard what became of the document.
    bool HasEnough() const
    {
        return wanted > 0 && complete >= wanted &&
               server.OpenConnections(printserver::Channel::Command) == 0 &&
               server.OpenConnections(printserver::Channel::Data) == 0;
    }

    const int wanted;
    std::atomic<int> complete{0};
    printserver::Server server;
};

void Serve(const Run& run, const ServerOptions& options)
{
    if (options.folder.empty())
        throw Failure("A print server wants --listen PORT and --out DIR; see 'farlink printserver --help'",
                      ExitStatus::Usage);
    CatchInterrupts();
    try {
        const Serving serving(options, run.json);
        serving.UntilTheEnd();
    } catch (const printserver::ListenError& error) {
        throw Failure(error.what());
    } catch (const std::filesystem::filesystem_error& error) {
        throw Failure("'" + options.folder + "' can't take the documents: " + error.code().message());
    }
}

std::string AsFault(const std::string& text)
{
    try {
        (void)printserver::ParseFault(text);
        return "";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

void AddSeconds(CLI::App& command, const char* name, double& value, const char* description)
{
    command.add_option(name, value, description)
        ->capture_default_str()
        ->check(CLI::Range(0.0, 86400.0))
        ->type_name("S");
}

void AddPlace(CLI::App& server, ServerOptions& options)
{
    CLI::Option* listen = server
                              .add_option("--listen", options.port,
                                          "TCP port of the data channel, 0 for any; commands come in 2 above")
                              ->check(CLI::Range(0, 65533))
                              ->type_name("PORT");
    // Together, and not required: the subcommand has no use for them.
    CLI::Option* out =
        server.add_option("--out", options.folder, "Folder for the documents; made if it is missing")
            ->needs(listen)
            ->type_name("DIR");
    listen->needs(out);
    server.add_option("--address", options.address, "Address to listen on")
        ->capture_default_str()
        ->type_name("ADDRESS");
    server
        .add_option("--documents", options.documents, "End when so many documents are through; 0 for never")
        ->capture_default_str()
        ->check(CLI::Range(0, 1000000))
        ->type_name("N");
}

// What becomes of each document.
void AddCourse(CLI::App& server, ServerOptions& options)
{
    server
        .add_option("--version", options.version, "Protocol version to speak; none: firmware that can't tell")
        ->capture_default_str()
        ->type_name("VERSION");
    server.add_option("--queue", options.queue, "Position at which each job enters the queue")
        ->capture_default_str()
        ->check(CLI::Range(0, 32767))
        ->type_name("N");
    AddSeconds(server, "--seconds", options.seconds, "Time at each position of the queue");
    AddSeconds(server, "--card-wait", options.cardWait, "Time that a whole document waits for a card");
    AddSeconds(server, "--printing", options.printing, "Time that the card takes");
    server
        .add_option("--end", options.end,
                    "What becomes of each job; a spooler counts finished and failed alike as through, "
                    "deletes a cancelled one, and gives up one that never ends")
        ->capture_default_str()
        ->check(CLI::IsMember({"finished", "failed", "cancelled", "never"}))
        ->type_name("WHAT");
    server
        .add_option("--rate", options.rate, "Read so many bytes a second of each document; 0 for all speed")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{0}, std::uint64_t{1'000'000'000}))
        ->type_name("BYTES");
    server
        .add_option("--read-back", options.readBack, "What the printer sends by itself, see 'farlink read'")
        ->type_name("TEXT");
    server.add_option("--fault", options.faults, "Go wrong there, see below; any number of times")
        ->check(AsFault)
        ->type_name("STEP:KIND")
        ->allow_extra_args(false);
}

}  // namespace

void AddPrintServerCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<ServerOptions>();
    CLI::App* server =
        farlink.add_subcommand("printserver", "Be a print server without a printer: documents become files");
    AddPrintServerCheckCommand(*server, run);
    AddJsonFlag(*server, run);
    AddPlace(*server, *options);
    AddCourse(*server, *options);
    AddExamples(*server,
                "farlink printserver --listen 9100 --out cards\n"
                "farlink printserver --listen 9100 --out cards --queue 3 --seconds 2 --printing 10\n"
                "farlink printserver --listen 0 --out cards --documents 1 --json\n"
                "farlink printserver --listen 9100 --out cards --fault bind-reply:delay=2#1\n"
                "farlink printserver check 10.0.0.7:9100");
    server->footer(server->get_footer() + "\n\n" + printserver::FaultHelp() +
                   "\n\nIt ends at Ctrl-C or SIGTERM; documents under way are then broken.");
    server->callback([&run, options, server] {
        if (server->get_subcommands().empty())
            Serve(run, *options);
    });
}

}  // namespace farlink
