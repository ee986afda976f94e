// Documents printed in the foreground, from PrintDocument down to the bytes at a print server.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/test_switches.h"
#include "printserver/scripted/print_server.h"
#include "spooler/printing.h"
#include "spooler/spooler_error.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary
using spooler::Outcome;
using spooler::Phase;
using spooler::Result;
using std::chrono::milliseconds;

namespace {

constexpr double kTimeScale = 0.1;
constexpr double kOpeningScale = 0.5;  // the opening's polls wait for the server's threads
constexpr std::size_t kLarge = 3000000;
constexpr std::size_t kHuge =
    20000000;  // more than the system's buffers take from a server that stopped reading

std::string Sample(std::size_t size)
{
    std::string bytes(size, 0);
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

class Witness : public spooler::Listener {
public:
    void OnProgress(const spooler::Progress& progress) override
    {
        test_switches::SetTimeScale(progress.phase == Phase::Connecting ? kOpeningScale : kTimeScale);
        const std::lock_guard guard(lock);
        if (phases.empty() || phases.back() != progress.phase)
            phases.push_back(progress.phase);
        if (progress.phase == Phase::WaitingInQueue && progress.queuePosition)
            firstPosition = std::max(firstPosition, *progress.queuePosition);
        written = progress.written;
        changed.notify_all();
    }
    void OnLogLine(std::string_view line) override { lines += std::string(line) + "\n"; }
    void OnAttemptFailed(const Result& failed, milliseconds pause) override
    {
        failures.push_back(failed.outcome);
        pauses.push_back(pause);
        if (onFailure)
            onFailure();
    }
    void OnBeforeLastByte() override
    {
        writtenBeforeLast.push_back(written);
        if (onBeforeLast)
            onBeforeLast();
    }
    void OnReadBack(std::span<const BYTE> bytes) override { readBack.append(bytes.begin(), bytes.end()); }

    bool Await(Phase phase)
    {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, std::chrono::minutes(1),
                                [&] { return !phases.empty() && phases.back() == phase; });
    }

    std::mutex lock;
    std::condition_variable changed;
    std::vector<Phase> phases;
    int firstPosition = 0;
    std::uint64_t written = 0;
    std::string lines;
    std::vector<Outcome> failures;
    std::vector<milliseconds> pauses;
    std::vector<std::uint64_t> writtenBeforeLast;
    std::string readBack;
    std::function<void()> onFailure;
    std::function<void()> onBeforeLast;
};

class Foreground : public testing::Test {
protected:
    Foreground() : path(testing::TempDir() + "document_" + std::to_string(getpid()))
    {
        Serve({});
        order.port = [this] {
            return spooler::PortSettings{.name = "Büro 1",
                                         .server = "127.0.0.1",
                                         .number = server->Port(),
                                         .keepAlivePeriod = 5,
                                         .keepAliveTimeout = 32767};
        };
        order.retryFor = milliseconds::zero();
        Keep(Sample(kLarge));
    }
    ~Foreground() override
    {
        server.reset();
        (void)unlink(path.c_str());
        test_switches::Reset();
    }

    void Serve(PrintServerOptions options)
    {
        options.keepAliveEvery = Milliseconds(20);
        server.emplace(std::move(options));
    }
    void ServeCourse(const Course& course)
    {
        PrintServerOptions options;
        options.course = course;
        Serve(std::move(options));
    }
    void Keep(const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        document = spooler::Document::OpenFile(path, {});
    }
    Result Print(Witness& heard) { return spooler::PrintDocument(order, *document, heard, stop.get_token()); }
    // Sizes of the documents that came to an end at the server, `count` of them; "*" behind one that is all
    // of the sample, and "broken" for one whose connection was.
    std::string Arrived(std::size_t count)
    {
        EXPECT_TRUE(server->WaitFor([&] { return server->Documents().size() >= count; }));
        std::string all;
        for (const printserver::Document& each : server->Documents()) {
            const std::string sample = Sample(each.size);
            const bool same =
                std::equal(each.bytes.begin(), each.bytes.end(), sample.begin(), sample.end(),
                           [](BYTE left, char right) { return left == static_cast<BYTE>(right); });
            all += (each.whole ? std::to_string(each.size) + (same ? "* " : " ") : "broken ");
        }
        return all;
    }

    const std::string path;
    std::optional<PrintServer> server;
    spooler::Order order;
    std::unique_ptr<spooler::Document> document;
    std::stop_source stop;
};

}  // namespace

TEST_F(Foreground, ADocumentArrivesByteForByteHoweverLongItIs)
{
    ServeCourse({.queue = 2, .perPosition = Milliseconds(300)});
    order.eventTypes = 0x3F;
    std::string arrived;
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{2}, std::size_t{65537}, std::size_t{65538}, kLarge}) {
        SCOPED_TRACE(size);
        Keep(Sample(size));
        Witness heard;
        const Result result = Print(heard);
        EXPECT_EQ(Outcome::Sent, result.outcome) << result.reason.cause << heard.lines;
        EXPECT_EQ(size, result.written);
        EXPECT_EQ(
            (std::vector{Phase::Connecting, Phase::WaitingInQueue, Phase::Sending, Phase::WaitingForCard}),
            heard.phases);
        EXPECT_GT(heard.firstPosition, 0);
        arrived += std::to_string(size) + "* ";
        EXPECT_EQ(arrived, Arrived(1));
        ASSERT_EQ(1u, heard.writtenBeforeLast.size()) << "told of the last byte once";
        EXPECT_EQ(size == 1 ? 0 : size - std::min<std::size_t>(65536, size - 1), heard.writtenBeforeLast[0]);
        EXPECT_NE(std::string::npos, heard.lines.find("gWritePort\n")) << heard.lines;
    }
}

TEST_F(Foreground, EachFaultHasItsOutcomeAndItsReason)
{
    const auto at = [this](Step step, Fault fault) { server->FaultAt(step, std::move(fault)); };
    const struct {
        const char* name;
        std::function<void()> prepare;
        Outcome outcome;
        const char* cause;
    } cases[] = {
        {"nobody", [&] { server->Refuse(Channel::Data); }, Outcome::NotConnected,
         "nothing listens on 127.0.0.1"},
        {"no commands", [&] { server->Refuse(Channel::Command); }, Outcome::NotConnected,
         "nothing listens on"},
        {"closed", [&] { at(Step::SessionId, Fault::Close()); }, Outcome::NotConnected,
         "the print server closed the connection"},
        {"reset", [&] { at(Step::SessionId, Fault::Reset()); }, Outcome::NotConnected,
         "the print server broke the connection off"},
        {"refused", [&] { at(Step::BindReply, Fault::Error(5)); }, Outcome::NotConnected,
         "the print server refused the session"},
        {"no version", [&] { at(Step::VersionReply, Fault::Drop()); }, Outcome::NotConnected,
         "the print server does not answer on its command port"},
        {"a stranger", [&] { at(Step::SessionId, Fault::Garbage()); }, Outcome::NotConnected,
         "what answers is no print server"},
        {"lost in the middle", [&] { at(Step::DataMiddle, Fault::Reset().AfterBytes(100000)); },
         Outcome::LostWhileSending, "the print server broke the connection off"},
        {"lost after the end", [&] { at(Step::EndOfData, Fault::Reset()); }, Outcome::Unconfirmed, ""},
        {"no final word", [&] { server->SetCourse({.end = {}}); }, Outcome::Unconfirmed,
         "no word came in time"},
        {"cancelled", [&] { server->SetCourse({.end = kCancelled}); }, Outcome::CancelledAtServer, ""},
        {"cancelled in the middle", [&] { server->SetCourse({.cancelAfterBytes = 100000}); },
         Outcome::CancelledAtServer, ""},
        {"cancelled at once", [&] { server->SetCourse({.byHand = Lpq(0, kCancelled)}); },
         Outcome::CancelledAtServer, ""},
    };
    Keep(Sample(kHuge));
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        Serve({});
        one.prepare();
        Witness heard;
        const Result result = Print(heard);
        EXPECT_EQ(one.outcome, result.outcome) << spooler::RuleFor(result.outcome).word << "\n"
                                               << heard.lines;
        EXPECT_EQ(one.cause, result.reason.cause.substr(0, std::string(one.cause).size())) << heard.lines;
        EXPECT_EQ(1u, result.attempts);
        EXPECT_EQ(one.outcome == Outcome::NotConnected ? 0 : result.written, result.written);
    }
}

// What can't have been printed is tried again, with the settings as they then stand; what may have been is
// not.
TEST_F(Foreground, AttemptsFollowThePolicy)
{
    Keep(Sample(kHuge));
    order.retryFor = std::nullopt;
    Witness heard;
    const auto first = std::make_shared<PrintServer>();
    first->Refuse(Channel::Data);
    const auto later = order.port;
    order.port = [&] {
        spooler::PortSettings settings = later();
        settings.number = heard.failures.size() < 3 ? first->Port() : settings.number;
        return settings;
    };
    server->FaultAt(Step::DataMiddle, Fault::Reset().AfterBytes(100000), 1);
    const Result result = Print(heard);
    EXPECT_EQ(Outcome::Sent, result.outcome) << result.reason.cause;
    EXPECT_EQ((std::vector{Outcome::NotConnected, Outcome::NotConnected, Outcome::NotConnected,
                           Outcome::LostWhileSending}),
              heard.failures);
    EXPECT_EQ((std::vector{milliseconds(1000), milliseconds(2000), milliseconds(4000), milliseconds(1000)}),
              heard.pauses);
    EXPECT_EQ("broken 20000000* ", Arrived(2));

    server->SetCourse({.end = {}});
    EXPECT_EQ(Outcome::Unconfirmed, Print(heard).outcome);
    EXPECT_EQ("broken 20000000* 20000000* ", Arrived(3)) << "printed again unasked";

    server->Refuse(Channel::Data);
    order.retryFor = milliseconds(4500);
    Witness patient;
    EXPECT_EQ(Outcome::NotConnected, Print(patient).outcome);
    ASSERT_EQ(3u, patient.pauses.size());
    EXPECT_LE(patient.pauses[2], milliseconds(1500)) << "what is left of the time";
}

TEST_F(Foreground, ALinkThatDiesInTheQueueIsNoticedAndMadeAnew)
{
    ServeCourse({.queue = 5, .perPosition = Milliseconds(600000)});
    order.retryFor = std::nullopt;
    Witness heard;
    heard.onFailure = [&] { server->SetCourse({}); };
    std::thread breaking([&] {
        EXPECT_TRUE(heard.Await(Phase::WaitingInQueue));
        server->Reset(Channel::Command);
    });
    const Result result = Print(heard);
    breaking.join();
    EXPECT_EQ(Outcome::Sent, result.outcome) << heard.lines;
    EXPECT_EQ(std::vector{Outcome::LostInQueue}, heard.failures);
    EXPECT_EQ(1u, heard.writtenBeforeLast.size()) << "not while it waited";
    EXPECT_EQ(0, server->Count(EventKind::PrinterDataQuery)) << "the sign of life costs the server nothing";
}

TEST_F(Foreground, AStopEndsEveryPhaseAtOnce)
{
    const struct {
        const char* name;
        Phase phase;
        std::function<void()> prepare;
        bool bytesAreOut;
    } cases[] = {
        {"connecting", Phase::Connecting, [&] { server->FaultAt(Step::SessionId, Fault::Silence()); }, false},
        {"queue", Phase::WaitingInQueue,
         [&] { server->SetCourse({.queue = 5, .perPosition = Milliseconds(600000)}); }, false},
        {"sending", Phase::Sending,
         [&] { server->FaultAt(Step::DataMiddle, Fault::Silence().AfterBytes(1)); }, true},
        {"card", Phase::WaitingForCard, [&] { server->SetCourse({.end = {}}); }, true},
        {"pause", Phase::Pausing, [&] { server->Refuse(Channel::Data); }, false},
    };
    order.retryFor = std::nullopt;
    Keep(Sample(kHuge));
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        Serve({});
        one.prepare();
        stop = {};
        Witness heard;
        std::chrono::steady_clock::time_point asked;
        std::thread stopping([&] {
            EXPECT_TRUE(heard.Await(one.phase));
            asked = std::chrono::steady_clock::now();
            stop.request_stop();
        });
        const Result result = Print(heard);
        stopping.join();
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(20));
        EXPECT_EQ(Outcome::CancelledHere, result.outcome);
        EXPECT_EQ(one.bytesAreOut, result.written != 0);
    }
    EXPECT_EQ(Outcome::CancelledHere, Print(*std::make_unique<Witness>()).outcome) << "before it began";
}

TEST_F(Foreground, WhatIsWrongWithADocumentPrintsNothing)
{
    const auto wordOf = [](const auto& open) {
        try {
            (void)open();
            return ERROR_SUCCESS;
        } catch (const spooler::SpoolerError& error) {
            return error.word;
        }
    };
    const std::string empty = path + ".empty";
    std::ofstream{empty};
    EXPECT_EQ(ERROR_INVALID_PARAMETER, wordOf([&] { return spooler::Document::OpenFile(empty, {}); }));
    (void)unlink(empty.c_str());
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, wordOf([&] { return spooler::Document::OpenFile(empty, {}); }));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, wordOf([] { return spooler::Document::OpenFile("/tmp", {}); }));

    // Cut short, and changed, between its opening and its end.
    const std::function<void()> changes[] = {[&] { ASSERT_EQ(0, truncate(path.c_str(), 1000)); },
                                             [&] { std::ofstream(path, std::ios::app) << "more"; }};
    for (const auto& change : changes) {
        Keep(Sample(kLarge));
        change();
        Witness heard;
        const Result result = Print(heard);
        EXPECT_EQ(Outcome::DocumentFailed, result.outcome);
        EXPECT_NE(std::string::npos, result.reason.cause.find(path)) << result.reason.cause;
        EXPECT_TRUE(heard.writtenBeforeLast.empty());
        EXPECT_LT(result.written, kLarge);
    }
    // Who is told of the last bytes may keep them from going out.
    Keep(Sample(kLarge));
    Witness heard;
    heard.onBeforeLast = [] { throw std::runtime_error("no room for the mark"); };
    const Result result = Print(heard);
    EXPECT_EQ(Outcome::DocumentFailed, result.outcome);
    EXPECT_EQ("no room for the mark", result.reason.cause);
    EXPECT_EQ(kLarge - 65536, result.written);
    EXPECT_EQ(std::string::npos, Arrived(3).find(std::to_string(kLarge)));
}

TEST_F(Foreground, InputThatIsNoFileIsTakenInOnceAndMayBePrintedTwice)
{
    const std::string fifo = path + ".fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    // No writer comes: only the stop ends the wait.
    std::thread stopping([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        stop.request_stop();
    });
    EXPECT_THROW((void)spooler::Document::OpenFile(fifo, stop.get_token()), spooler::SpoolerError);
    stopping.join();
    stop = {};

    std::thread writing([&] { std::ofstream(fifo, std::ios::binary) << Sample(kLarge); });
    document = spooler::Document::OpenFile(fifo, {});
    writing.join();
    (void)unlink(fifo.c_str());
    EXPECT_EQ(kLarge, document->Size());
    Witness heard;
    EXPECT_EQ(Outcome::Sent, Print(heard).outcome);
    EXPECT_EQ(Outcome::Sent, Print(heard).outcome);
    EXPECT_EQ("3000000* 3000000* ", Arrived(2));
}

TEST_F(Foreground, WhatThePrinterSendsBackComesBetweenTheWrites)
{
    const std::string answer = "ribbon 40 %";
    server->OfferParallelData({answer.begin(), answer.end()});
    server->FaultAt(Step::DataMiddle, Fault::Delay(Milliseconds(200)).AfterBytes(100000));
    order.readBack = true;
    Keep(Sample(kHuge));
    Witness heard;
    EXPECT_EQ(Outcome::Sent, Print(heard).outcome) << heard.lines;
    EXPECT_EQ(answer, heard.readBack);
}
