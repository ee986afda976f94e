// The check of print servers, on the simulator in every version and on servers that are wrong in one thing
// each.

#include "printserver/check/check.h"

#include <gtest/gtest.h>
#include <fstream>
#include <future>
#include <iterator>
#include <regex>

#include "printserver/scripted/print_server.h"

namespace printserver::check {
namespace {

CheckOptions OptionsFor(const Server& server)
{
    CheckOptions options;
    options.target = {.port = server.Port(), .atOnce = Milliseconds(5000), .turn = Milliseconds(10000)};
    options.smallDocument = Bytes(2000, 's');
    options.largeDocument = Bytes(3000000, 'l');
    return options;
}

PrintServerOptions Faultless()
{
    return {.course = {.queue = 1, .perPosition = Milliseconds(500)},
            .dropSilentClients = true,
            .bindWait = Milliseconds(2000),
            .settle = Milliseconds(100)};
}

// The page's text in one line.
std::string Page()
{
    std::ifstream file(FARLINK_WIRE_PROTOCOL);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return std::regex_replace(text, std::regex("\\s+"), " ");
}

TEST(PrintServerCheck, FindsNothingAtTheSimulatorInAnyVersion)
{
    const auto check = [](const std::string& version) {
        PrintServerOptions options = Faultless();
        options.version = version;
        const Server server(options);
        std::string report;
        for (const Point* point : AllPoints()) {
            const Finding finding = RunPoint(*point, OptionsFor(server));
            if (finding.verdict != Verdict::Right)
                report += std::string(point->name) + " " + NameOf(finding.verdict) + ", expected " +
                          finding.expected + ", came " + finding.came + "\n";
        }
        std::size_t whole = 0;
        for (const Document& document : server.Documents())
            whole += document.whole;
        EXPECT_EQ(static_cast<std::size_t>(CardsOf(AllPoints())), whole) << "cards, version " << version;
        return report;
    };
    const std::string noKeepAlives =
        "silent-client not seen, expected , came up to version 1.0 a client sends no keep-alives\n";
    const std::string noQueryAlone =
        "query-alone not seen, expected , came below version 1.10 a query opens both channels\n";
    const std::pair<const char*, std::string> versions[] = {{"1.10", ""},
                                                            {"1.2", noQueryAlone},
                                                            {"1.0", noKeepAlives + noQueryAlone},
                                                            {"", noKeepAlives + noQueryAlone}};
    std::vector<std::future<std::string>> reports;
    for (const auto& [version, expected] : versions)
        reports.push_back(std::async(std::launch::async, check, version));
    for (std::size_t i = 0; i < reports.size(); ++i)
        EXPECT_EQ(versions[i].second, reports[i].get()) << "version " << versions[i].first;
}

struct BrokenServer {
    const char* point;  // what it is found by
    void (*breakOptions)(PrintServerOptions& options);
    void (*breakServer)(PrintServer& server);
};

constexpr auto kAsItIs = [](PrintServerOptions&) {};
constexpr auto kNoFault = [](PrintServer&) {};
// Both channels open, and then it is the script's turn.
Script& Opened(PrintServer& server)
{
    return server.Command()
        .Accept()
        .AnswerVersion("1.10")
        .AnswerBind(1)
        .AnswerStartKeepAlives()
        .AnswerStartNotifications(Lpq(0, kReceivingData));
}

const BrokenServer kBrokenServers[] = {
    {"session-id", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::SessionId, Fault::WrongType(1)); }},
    {"trans-mode", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::TransMode, Fault::Payload(Text("x"))); }},
    {"version-reply", [](PrintServerOptions& it) { it.version = "one"; }, kNoFault},
    {"bind-reply", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::BindReply, Fault::Error(5)); }},
    {"keep-alives-reply", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::StartKeepAlivesReply, Fault::WrongId(18)); }},
    {"first-record", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::FirstLpqInfo, Fault::Payload(Bytes(9))); }},
    {"one-send", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::BindReply, Fault::SingleBytes()); }},
    {"unknown-request", kAsItIs, [](PrintServer& it) { Opened(it).ExpectFrame(2, 99).HangUp(); }},
    {"foreign-frame", kAsItIs, [](PrintServer& it) { Opened(it).AwaitHangUp(); }},
    {"keep-alives", kAsItIs, [](PrintServer& it) { it.StopKeepAlives(); }},
    {"silent-client", [](PrintServerOptions& it) { it.dropSilentClients = false; }, kNoFault},
    {"suppress", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::SuppressReply, Fault::Error(1)); }},
    {"read-back", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::ParallelReadReply, Fault::Payload(U16(200))); }},
    {"query", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::QueryReply, Fault::WrongId(5)); }},
    {"query-alone", [](PrintServerOptions& it) { it.queryAnswer = [](auto, auto&) { return Bytes(3); }; },
     [](PrintServer& it) { it.FaultAt(Step::QueryReply, Fault::Error(3)); }},
    {"session-numbers", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::SessionId, Fault::Payload(U16(7))); }},
    {"unknown-session", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::BindReply, Fault::Error(0)); }},
    {"bound-session", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::BindReply, Fault::Error(0)); }},
    {"empty-session", [](PrintServerOptions& it) { it.course.byHand = Lpq(0, kReceivingData); }, kNoFault},
    {"queue-positions", [](PrintServerOptions& it) { it.course.byHand = Lpq(3, kWaiting); }, kNoFault},
    {"cancel-queued", [](PrintServerOptions& it) { it.course.byHand = Lpq(3, kWaiting); }, kNoFault},
    {"cancel-sending", [](PrintServerOptions& it) { it.course.cancelAfterBytes = 1000; }, kNoFault},
    {"lost-command", kAsItIs, [](PrintServer& it) { Opened(it).AwaitHangUp(); }},
    {"lost-bound", kAsItIs, [](PrintServer& it) { it.FaultAt(Step::AcceptData, Fault::Close(), 2); }},
    {"small-document", [](PrintServerOptions& it) { it.course.end = kFailed; }, kNoFault},
    {"large-document", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::DataMiddle, Fault::Reset().AfterBytes(100000)); }},
    {"several-sessions", kAsItIs,
     [](PrintServer& it) { it.FaultAt(Step::AcceptCommand, Fault::Close(), 2); }},
};

Finding CheckBroken(const BrokenServer& broken)
{
    PrintServerOptions options = Faultless();
    broken.breakOptions(options);
    PrintServer server(options);
    broken.breakServer(server);
    CheckOptions check = OptionsFor(server);
    check.target.turn = Milliseconds(3000);
    return RunPoint(*PointsNamed({broken.point}).front(), check);
}

TEST(PrintServerCheck, NamesTheFaultOfEachBrokenServerByThePage)
{
    const std::string page = Page();
    for (const Point* point : AllPoints())
        EXPECT_NE(std::string::npos, page.find(point->page)) << point->name << ": " << point->page;

    std::vector<std::future<Finding>> findings;
    for (const BrokenServer& broken : kBrokenServers)
        findings.push_back(std::async(std::launch::async, CheckBroken, std::cref(broken)));
    for (std::size_t i = 0; i < findings.size(); ++i) {
        SCOPED_TRACE(kBrokenServers[i].point);
        const Finding finding = findings[i].get();
        EXPECT_STREQ("WRONG", NameOf(finding.verdict)) << finding.came;
        EXPECT_NE("", finding.expected);
        EXPECT_NE(std::string::npos, page.find(finding.page)) << finding.page;
    }
}

}  // namespace
}  // namespace printserver::check
