// Every step of the exchange, times every fault, times the uses of a port. What a cell must come to follows
// from the table below and from rules that hold for all of them: a job is asked to be sent, restarted or
// left alone, once; what is called sent lies whole at the print server; the next document on the port prints;
// and threads and connections are back where they were.
//
// All cells take some minutes: FARLINK_MATRIX=whole runs them, and without it one in kEach is drawn, others
// for each use.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/support/link_fixture.h"
#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

enum class Use { Job, ReadBack, QueryInJob, ChannelMode };
constexpr const char* kUses[] = {"print job", "read-back", "query in a job", "channel mode"};

// What a fault does to the channel that it hits.
enum class Harm {
    None,  // the message is as good as ever
    Some,  // a refusal, or what is good or bad by its timing: the rules for every cell must do
    Kills  // the connection, or the trust in it, is gone
};

struct NamedFault {
    Fault fault;
    Harm harm;
};

struct StepInfo {
    Step step;
    bool opening;  // in the set-up of the channels
    bool onData;   // of the data channel
    bool beforeKeepAlives;
    bool takenWhole;  // looked at until it is whole
};

constexpr StepInfo kSteps[] = {
    {Step::SessionId, true, true, false, false},
    {Step::TransMode, true, true, false, false},
    {Step::VersionReply, true, false, true, true},
    {Step::BindReply, true, false, true, true},
    {Step::StartKeepAlivesReply, true, false, true, false},
    {Step::SuppressReply, true, false, false, false},
    {Step::FirstLpqInfo, true, false, false, false},
    {Step::KeepAlive, false, false, false, true},
    {Step::Notification, false, false, false, true},
    {Step::ParallelReadReply, false, false, false, false},
    {Step::QueryReply, false, false, false, false},
    {Step::AcceptData, true, true, false, false},
    {Step::AcceptCommand, true, false, false, false},
    {Step::ClientKeepAlive, false, false, false, false},
    {Step::DataMiddle, false, true, false, false},
    {Step::EndOfData, false, true, false, false},
};

constexpr std::size_t kEach = 9;
constexpr Milliseconds kSoon{20};
constexpr Milliseconds kTooLate{1500};  // beyond the longest poll at the opening's time scale
constexpr std::size_t kDocumentSize = 300000;

std::vector<NamedFault> FaultsFor(const StepInfo& at)
{
    std::vector<NamedFault> faults = {{Fault::Close(), Harm::Kills},
                                      {Fault::Reset(), Harm::Kills},
                                      {Fault::Silence(), Harm::Kills},
                                      {Fault::Delay(kSoon), Harm::None}};
    if (!IsMessage(at.step))
        return faults;
    faults.push_back({Fault::Delay(kTooLate), Harm::Some});
    faults.push_back({Fault::Garbage(), Harm::Kills});
    faults.push_back({Fault::WrongType(9), Harm::Kills});
    faults.push_back({Fault::HalfThenSilence(2), Harm::Kills});
    faults.push_back({Fault::HalfThenClose(2), Harm::Kills});
    // A field of the data channel's opening must come in one piece, and so must a header that is waited for.
    faults.push_back({Fault::SingleBytes(), at.takenWhole ? Harm::None : Harm::Some});
    faults.push_back({at.onData ? Fault::Length(0xFFFF) : Fault::HugeLength(), Harm::Kills});
    if (!at.onData) {
        faults.push_back({Fault::WrongId(99), Harm::Kills});
        faults.push_back({Fault::Error(5), Harm::Some});
        // Before keep-alives were asked for, none belongs there.
        faults.push_back({Fault::InFront(KeepAlive()), at.beforeKeepAlives ? Harm::Kills : Harm::None});
    }
    return faults;
}

bool Comes(Step step, Use use)
{
    switch (step) {
        case Step::ParallelReadReply:
            return use == Use::ReadBack;
        case Step::QueryReply:
            return use == Use::QueryInJob;
        case Step::SuppressReply:
            return use == Use::ChannelMode;
        default:
            return true;
    }
}

class FaultMatrix : public Printing {
protected:
    static constexpr double kMatrixScale = 0.1;
    static constexpr WORD kTimeout = 20;  // seconds: two at this scale

    void SetUp() override
    {
        Printing::SetUp();
        server->OfferParallelData(printserver::Text("from the printer"));
        // One whole document first, so that whatever is made once is there before it is counted.
        PrintWell();
    }

    // What one document's calls gave.
    struct Outcome {
        bool started = false;
        bool written = false;
        bool extra = false;  // the read or the query
        std::vector<DWORD> commands;
        bool whole = false;  // at the print server
    };

    Outcome Print(Use use, bool hangUp)
    {
        Outcome outcome;
        const std::size_t commandsBefore = spooler.JobCommands().size();
        const std::size_t before = server->Documents().size();
        const Bytes document = SampleDocument(kDocumentSize);
        outcome.started = use == Use::ChannelMode ? StartChannel() : StartJobAt(kMatrixScale);
        if (outcome.started) {
            outcome.written = WriteAll(document);
            if (use == Use::ReadBack)
                outcome.extra = Read(16);
            if (use == Use::QueryInJob)
                outcome.extra = QueryNow();
            EXPECT_TRUE(End());
        }
        const std::vector<DWORD> commands = spooler.JobCommands();
        outcome.commands.assign(commands.begin() + static_cast<std::ptrdiff_t>(commandsBefore),
                                commands.end());
        if (hangUp)
            server->HangUp(Channel::Data);  // a server that fell silent in its reading keeps its side open
        EXPECT_TRUE(AllHungUp()) << "a connection stays open";
        const std::vector<Document> taken = server->Documents();
        outcome.whole =
            std::any_of(taken.begin() + static_cast<std::ptrdiff_t>(before), taken.end(),
                        [&](const Document& each) { return each.whole && each.bytes == document; });
        return outcome;
    }

    void RunCells(Use use)
    {
        const char* const wanted = std::getenv("FARLINK_MATRIX");
        const bool whole = wanted != nullptr && std::string(wanted) == "whole";
        std::size_t index = static_cast<std::size_t>(use) * 2;
        int cells = 0;
        for (const StepInfo& at : kSteps) {
            if (!Comes(at.step, use))
                continue;
            for (const NamedFault& fault : FaultsFor(at)) {
                if (!whole && index++ % kEach != 0)
                    continue;
                RunCell(use, at, fault);
                ++cells;
            }
        }
        std::printf("%d cells\n", cells);
        EXPECT_GT(cells, 0);
    }

private:
    bool StartJobAt(double scale)
    {
        test_switches::SetTimeScale(scale);
        DOC_INFO_1W document{MonitorFixture::Text("Card"), nullptr, MonitorFixture::Text("RAW")};
        return table->pfnStartDocPort(port, MonitorFixture::Text("Printer"), kJob, 1,
                                      reinterpret_cast<LPBYTE>(&document));
    }
    bool WriteAll(const Bytes& document)
    {
        Bytes bytes = document;
        DWORD count = 0;
        return table->pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &count) &&
               count == bytes.size();
    }
    bool QueryNow()
    {
        BYTE reply[8];
        DWORD count = 0;
        return table->pfnGetPrinterDataFromPort(port, 7, nullptr, MonitorFixture::Text("ab"), 4,
                                                reinterpret_cast<LPWSTR>(reply), sizeof reply, &count);
    }
    bool AllHungUp()
    {
        return server->WaitFor(
            [this] {
                return server->OpenConnections(Channel::Data) + server->OpenConnections(Channel::Command) ==
                       0;
            },
            Milliseconds(30000));
    }

    void PrintWell()
    {
        test_switches::SetTimeScale(kOpeningScale);
        EXPECT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, kPatientTimeout));
        const std::size_t commandsBefore = spooler.JobCommands().size();
        ASSERT_TRUE(StartJob(kJob + 1));  // another job: the one before may be known as restarted
        EXPECT_TRUE(WriteAll(SampleDocument(1000)));
        EXPECT_TRUE(End());
        const std::vector<DWORD> commands = spooler.JobCommands();
        ASSERT_EQ(commandsBefore + 1, commands.size());
        EXPECT_EQ(DWORD{JOB_CONTROL_SENT_TO_PRINTER}, commands.back());
        EXPECT_TRUE(AllHungUp());
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_EQ(log.Count("{CCommandChannel::ThreadProc"), log.Count("}CCommandChannel::ThreadProc"));
        log.Clear();
    }

    void RunCell(Use use, const StepInfo& at, const NamedFault& fault)
    {
        SCOPED_TRACE(testing::Message() << kUses[static_cast<int>(use)] << ", " << NameOf(at.step) << ": "
                                        << fault.fault.Name() << " " << static_cast<int>(fault.harm));
        // A message that comes as it should comes well within a poll only when the clock is slow.
        test_switches::SetTimeScale(fault.harm == Harm::None ? kOpeningScale : kMatrixScale);
        EXPECT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, kTimeout));
        server->FaultAt(at.step, fault.fault.AfterBytes(at.step == Step::DataMiddle ? 1000 : 0), 1);
        const bool stopsReading = at.step == Step::DataMiddle || at.step == Step::EndOfData;
        const Outcome outcome = Print(use, stopsReading && fault.harm == Harm::Kills);
        server->ClearFaults();
        Judge(use, at, fault, outcome);
        PrintWell();
    }

    void Judge(Use use, const StepInfo& at, const NamedFault& fault, const Outcome& outcome)
    {
        const bool sent = outcome.commands == std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER};
        const bool restarted = outcome.commands == std::vector<DWORD>{JOB_CONTROL_RESTART};
        EXPECT_TRUE(sent || restarted || outcome.commands.empty())
            << outcome.commands.size() << " words to the spooler";
        if (use == Use::ChannelMode) {
            EXPECT_TRUE(outcome.started);  // no network yet
        } else if (sent) {
            EXPECT_TRUE(outcome.whole) << "called sent, but not at the print server";
        }
        if (fault.harm == Harm::None) {
            EXPECT_TRUE(outcome.started && outcome.written && sent && outcome.whole);
        } else if (at.opening && fault.harm == Harm::Kills && use != Use::ChannelMode) {
            EXPECT_FALSE(outcome.started) << "opened in spite of the fault";
            EXPECT_TRUE(outcome.commands.empty()) << "the spooler itself knows of a failed start";
        } else if (at.opening && fault.harm == Harm::Kills) {
            EXPECT_FALSE(outcome.written) << "opened in spite of the fault";
        }
        if (outcome.started && use != Use::ChannelMode) {
            EXPECT_TRUE(sent || restarted) << "nobody tells the spooler what became of the job";
        }
    }
};

TEST_F(FaultMatrix, PrintJob)
{
    RunCells(Use::Job);
}

TEST_F(FaultMatrix, ReadBack)
{
    RunCells(Use::ReadBack);
}

TEST_F(FaultMatrix, QueryInAJob)
{
    RunCells(Use::QueryInJob);
}

TEST_F(FaultMatrix, ChannelMode)
{
    RunCells(Use::ChannelMode);
}

}  // namespace
