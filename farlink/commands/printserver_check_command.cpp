#include "farlink/commands/printserver_check_command.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "farlink/commands/card_drawing.h"
#include "farlink/file_path.h"
#include "printserver/check/check.h"

namespace farlink {

namespace {

using printserver::check::Finding;
using printserver::check::Point;
using printserver::check::Verdict;

struct CheckedServer {
    std::string address;
    std::vector<std::string> only;
    std::string document;
    std::uint32_t query = 1;
    bool list = false;
    bool yes = false;
};

// "10.0.0.7:9100"
printserver::check::Target TargetOf(const std::string& address)
{
    const std::size_t colon = address.rfind(':');
    const std::string port = colon == std::string::npos ? "" : address.substr(colon + 1);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (colon == 0 || !isNumber || std::stoul(port) == 0 || std::stoul(port) > 65533)
        throw Failure("'" + address + "' is no print server; write HOST:PORT, such as 10.0.0.7:9100",
                      ExitStatus::Usage);
    return {.host = address.substr(0, colon), .port = static_cast<std::uint16_t>(std::stoul(port))};
}

printserver::Bytes ReadDocument(const std::string& name)
{
    std::ifstream file(PathOf(name), std::ios::binary);
    printserver::Bytes bytes(std::istreambuf_iterator<char>(file), {});
    if (!file || bytes.size() < 2)
        throw Failure("'" + name + "' can't be read, or is too short to be a document");
    return bytes;
}

printserver::check::CheckOptions CheckOptionsOf(const CheckedServer& server)
{
    printserver::check::CheckOptions options;
    options.target = TargetOf(server.address);
    options.query = server.query;
    if (server.document.empty()) {
        options.largeDocument = printserver::Text(DrawCard(1));
        options.smallDocument =
            printserver::Bytes(options.largeDocument.begin(), options.largeDocument.begin() + 2000);
    } else {
        options.smallDocument = options.largeDocument = ReadDocument(server.document);
    }
    return options;
}

void List(const Run& run, const std::vector<const Point*>& points)
{
    for (const Point* point : points) {
        if (run.json) {
            PrintJsonLine({{"point", point->name},
                           {"title", point->title},
                           {"cards", point->cards},
                           {"page", point->page}});
        } else {
            PrintLine(std::string(point->name) + ": " + point->title);
            PrintLine(std::string("    \"") + point->page + "\"");
        }
    }
}

std::string CardsText(int cards)
{
    return std::to_string(cards) + (cards == 1 ? " card" : " cards");
}

// The person says yes, beforehand or now.
void AskToPrint(const CheckedServer& server, int cards)
{
    if (cards == 0 || server.yes)
        return;
    std::fprintf(stderr, "This prints %s on the print server at %s. Go on? [y/N] ", CardsText(cards).c_str(),
                 server.address.c_str());
    std::string answer;
    if (!std::getline(std::cin, answer) || (answer != "y" && answer != "yes"))
        throw Failure("Nothing was printed; '--yes' goes on without asking");
}

void Tell(const Run& run, const Finding& finding)
{
    if (run.json) {
        Json line = {{"point", finding.point->name}, {"verdict", NameOf(finding.verdict)}};
        for (const auto& [name, text] :
             {std::pair{"expected", finding.expected}, {"came", finding.came}, {"page", finding.page}})
            if (!text.empty())
                line[name] = text;
        PrintJsonLine(line);
        return;
    }
    PrintLine(std::string(finding.point->name) + ": " + NameOf(finding.verdict) +
              (finding.expected.empty() && !finding.came.empty() ? ": " + finding.came : ""));
    if (finding.expected.empty())
        return;
    PrintLine("    expected: " + finding.expected);
    PrintLine("    came:     " + finding.came);
    PrintLine("    page:     \"" + finding.page + "\"");
}

// A connection that ends without a byte is what status checks make of a server too.
void RequireServer(const printserver::check::Target& target)
{
    for (const int port : {int{target.port}, target.port + 2})
        if (!printserver::ConnectTo(target.host, static_cast<std::uint16_t>(port),
                                    printserver::Milliseconds(5000)))
            throw Failure("Nothing listens on " + target.host + " port " + std::to_string(port) +
                          "; a print server has both its data port and the one 2 above");
}

// By Verdict.
using VerdictCounts = std::array<int, 4>;

void TellSummary(const Run& run, const VerdictCounts& counts, bool isRight, int cards)
{
    const auto count = [&counts](Verdict verdict) { return counts[static_cast<std::size_t>(verdict)]; };
    if (run.json)
        PrintJsonLine({{"right", count(Verdict::Right)},
                       {"wrong", count(Verdict::Wrong)},
                       {"notReached", count(Verdict::NotReached)},
                       {"notSeen", count(Verdict::NotSeen)},
                       {"cards", cards}});
    else
        PrintLine(std::to_string(count(Verdict::Right)) + " right, " + std::to_string(count(Verdict::Wrong)) +
                  " wrong, " + std::to_string(count(Verdict::NotReached)) + " not reached, " +
                  std::to_string(count(Verdict::NotSeen)) + " not seen. Count the cards: " +
                  (isRight ? "" : "at most ") + CardsText(cards) + " should have come out.");
}

void Check(Run& run, const CheckedServer& server)
{
    const std::vector<const Point*> points = printserver::check::PointsNamed(server.only);
    if (server.list) {
        List(run, points);
        return;
    }
    const printserver::check::CheckOptions options = CheckOptionsOf(server);
    const int cards = CardsOf(points);
    RequireServer(options.target);
    AskToPrint(server, cards);
    VerdictCounts counts{};
    for (const Point* point : points) {
        const Finding finding = printserver::check::RunPoint(*point, options);
        ++counts[static_cast<std::size_t>(finding.verdict)];
        Tell(run, finding);
    }
    const bool isRight = counts[static_cast<std::size_t>(Verdict::Wrong)] == 0 &&
                         counts[static_cast<std::size_t>(Verdict::NotReached)] == 0;
    TellSummary(run, counts, isRight, cards);
    if (!isRight)
        run.status = ExitStatus::Failed;
}

}  // namespace

void AddPrintServerCheckCommand(CLI::App& printServer, Run& run)
{
    auto server = std::make_shared<CheckedServer>();
    CLI::App* check = printServer.add_subcommand(
        "check", "Prove a print server right: walk it through the protocol, point by point");
    AddJsonFlag(*check, run);
    CLI::Option* address =
        check->add_option("SERVER", server->address, "Where it is: HOST:PORT of its data channel");
    CLI::Option* list =
        check->add_flag("--list", server->list, "Show the points and what they stand on, and check nothing");
    check->add_option("--only", server->only, "This point alone; any number of times")
        ->type_name("POINT")
        ->allow_extra_args(false);
    check->add_option("--document", server->document, "Print this, and not an image that the tool makes")
        ->type_name("FILE");
    check->add_option("--query", server->query, "What the printer is asked, see 'farlink query'")
        ->capture_default_str()
        ->check(CLI::Range(1U, 0xFFFFFFFFU))
        ->type_name("ID");
    check->add_flag("--yes", server->yes, "Print without asking first");
    AddExamples(*check,
                "farlink printserver check 10.0.0.7:9100\n"
                "farlink printserver check 10.0.0.7:9100 --only bind-reply --only cancel-queued\n"
                "farlink printserver check --list");
    check->footer(
        check->get_footer() +
        "\n\nEvery point says what was expected, what came, and the sentence of docs/wire-protocol.md.\n"
        "The whole check takes about two minutes and prints 4 cards; keep other jobs away meanwhile.");
    check->callback([&run, server, address, list] {
        if (address->count() == 0 && list->count() == 0)
            throw CLI::RequiredError("SERVER");
        try {
            Check(run, *server);
        } catch (const std::invalid_argument& error) {
            throw Failure(std::string(error.what()) + "; see 'farlink printserver check --list'",
                          ExitStatus::Usage);
        }
    });
}

}  // namespace farlink
