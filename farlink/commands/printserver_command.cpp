#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include "farlink/commands.h"
#include "farlink/interrupts.h"
#include "farlink/sizes.h"
#include "farlink/wide_text.h"
#include "printserver/print_server.h"

namespace farlink {

namespace {

using printserver::Event;
using printserver::EventKind;

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
    int documents = 0;
};

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
    server.keepHistory = false;
    return server;
}

const char* WordOf(EventKind kind)
{
    switch (kind) {
        case EventKind::Connected:
            return "connected";
        case EventKind::SessionAssigned:
            return "session";
        case EventKind::VersionAsked:
            return "version-asked";
        case EventKind::Bound:
            return "bound";
        case EventKind::KeepAlivesStarted:
            return "keep-alives-started";
        case EventKind::NotificationsStarted:
            return "notifications-started";
        case EventKind::QueuePosition:
            return "queue-position";
        case EventKind::JobState:
            return "job-state";
        case EventKind::Receiving:
            return "receiving";
        case EventKind::DocumentComplete:
            return "document-complete";
        case EventKind::DocumentBroken:
            return "document-broken";
        case EventKind::SyslogSuppressed:
            return "syslog-suppressed";
        case EventKind::ParallelRead:
            return "parallel-read";
        case EventKind::PrinterDataQuery:
            return "query";
        case EventKind::ClientKeepAlive:
            return "client-keep-alive";
        case EventKind::ClientSilent:
            return "client-silent";
        case EventKind::FaultPlayed:
            return "fault";
        case EventKind::Malformed:
            return "malformed";
        case EventKind::Trouble:
            return "trouble";
        case EventKind::HungUp:
            return "hung-up";
    }
    return "event";
}

bool IsOfDocument(const Event& event)
{
    return event.kind == EventKind::DocumentComplete || event.kind == EventKind::DocumentBroken;
}

Json JsonOf(const Event& event)
{
    Json line = {{"event", WordOf(event.kind)},
                 {"channel", printserver::NameOf(event.channel)},
                 {"connection", event.connection}};
    if (event.session >= 0)
        line["session"] = event.session;
    if (event.kind == EventKind::QueuePosition || event.kind == EventKind::JobState)
        line["number"] = event.number;
    if (IsOfDocument(event)) {
        line["document"] = event.document;
        line["size"] = event.size;
        line["sha256"] = event.sha256;
    }
    line["text"] = event.text;
    return line;
}

void Tell(const Event& event, bool json)
{
    if (json) {
        PrintJsonLine(JsonOf(event));
        return;
    }
    const std::string who =
        std::string(printserver::NameOf(event.channel)) + " " + std::to_string(event.connection);
    PrintLine(who + ": " + event.text);
}

class Serving {
public:
    Serving(const ServerOptions& options, bool json)
        : wanted(options.documents), server(Prepared(options, json))
    {
        const std::string folder = options.folder;
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
        prepared.observer = [this, json](const Event& event) {
            Tell(event, json);
            if (event.kind == EventKind::DocumentComplete)
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
    printserver::PrintServer server;
};

void Serve(const Run& run, const ServerOptions& options)
{
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

void AddSeconds(CLI::App& command, const char* name, double& value, const char* description)
{
    command.add_option(name, value, description)
        ->capture_default_str()
        ->check(CLI::Range(0.0, 86400.0))
        ->type_name("S");
}

}  // namespace

void AddPrintServerCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<ServerOptions>();
    CLI::App* server =
        farlink.add_subcommand("printserver", "Be a print server without a printer: documents become files");
    AddJsonFlag(*server, run);
    server
        ->add_option("--listen", options->port,
                     "TCP port of the data channel, 0 for any; commands come in 2 above")
        ->required()
        ->check(CLI::Range(0, 65533))
        ->type_name("PORT");
    server->add_option("--out", options->folder, "Folder for the documents; made if it is missing")
        ->required()
        ->type_name("DIR");
    server->add_option("--address", options->address, "Address to listen on")
        ->capture_default_str()
        ->type_name("ADDRESS");
    server
        ->add_option("--version", options->version,
                     "Protocol version to speak; none: firmware that can't tell")
        ->capture_default_str()
        ->type_name("VERSION");
    server->add_option("--queue", options->queue, "Position at which each job enters the queue")
        ->capture_default_str()
        ->check(CLI::Range(0, 32767))
        ->type_name("N");
    AddSeconds(*server, "--seconds", options->seconds, "Time at each position of the queue");
    AddSeconds(*server, "--card-wait", options->cardWait, "Time that a whole document waits for a card");
    AddSeconds(*server, "--printing", options->printing, "Time that the card takes");
    server->add_option("--end", options->end, "What becomes of each job")
        ->capture_default_str()
        ->check(CLI::IsMember({"finished", "failed", "cancelled", "never"}))
        ->type_name("WHAT");
    server
        ->add_option("--documents", options->documents, "End when so many documents are through; 0 for never")
        ->capture_default_str()
        ->check(CLI::Range(0, 1000000))
        ->type_name("N");
    AddExamples(*server,
                "farlink printserver --listen 9100 --out cards\n"
                "farlink printserver --listen 9100 --out cards --queue 3 --seconds 2 --printing 10\n"
                "farlink printserver --listen 0 --out cards --documents 1 --json");
    server->footer(server->get_footer() +
                   "\n\nIt ends at Ctrl-C or SIGTERM; documents under way are then broken.");
    server->callback([&run, options] { Serve(run, *options); });
}

}  // namespace farlink
