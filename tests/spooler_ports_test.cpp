// What is asked of a port beside its jobs.

#include <algorithm>
#include <thread>

#include "tests/spooler_fixture.h"

namespace {

class SpoolerPorts : public SpoolerTest {
protected:
    bool Query(const WideString& port, const std::string& input = "", std::size_t room = 32)
    {
        std::string output(room, '?');
        DWORD returned = 99;
        const bool done = QueryPort(port.c_str(), 0x1234, input.data(), static_cast<DWORD>(input.size()),
                                    output.data(), static_cast<DWORD>(output.size()), &returned) != FALSE;
        error = GetLastError();
        reply = output.substr(0, returned);
        rest = output.substr(returned);
        return done;
    }
    void Hold(bool queries)
    {
        monitor.Locked([&](TestMonitorScript& script) { script.heldQuery = queries; });
    }
    void AwaitQuery()
    {
        monitor.Await([](const TestMonitorScript& script) { return !script.queries.empty(); });
    }

    DWORD error = 0;
    std::string reply;
    std::string rest;  // of the caller's buffer
};

}  // namespace

TEST_F(SpoolerPorts, AQueryIsADocumentInChannelModeWithoutAJob)
{
    ASSERT_TRUE(Query(TEXT("ONE"), std::string("a\0b", 3))) << ErrorText();
    EXPECT_EQ("answer", reply);
    EXPECT_EQ(std::string(26, '?'), rest);
    ASSERT_TRUE(Query(TEXT("ONE"), "", 2)) << ErrorText();
    EXPECT_EQ("an", reply);
    ASSERT_TRUE(QueryPort(TEXT("ONE"), 1, nullptr, 0, nullptr, 0, &error)) << ErrorText();

    monitor.Locked([](TestMonitorScript& script) {
        ASSERT_EQ(3u, script.queries.size());
        EXPECT_EQ(0x1234u, script.queries[0].controlId);
        EXPECT_EQ(std::string("a\0b", 3), script.queries[0].input);
        for (const auto& document : script.documents)
            EXPECT_TRUE(document.channel && document.ended && document.jobId == 0);
    });
}

TEST_F(SpoolerPorts, ACheckWritesNothing)
{
    EXPECT_TRUE(CheckPort(TEXT("ONE"))) << ErrorText();
    ASSERT_EQ(1u, Documents().size());
    EXPECT_TRUE(Documents()[0].channel && Documents()[0].ended);
    EXPECT_EQ("", Documents()[0].bytes);
    monitor.Locked([](TestMonitorScript& script) { script.failingWrites = 1; });
    EXPECT_FALSE(CheckPort(TEXT("ONE")));
    EXPECT_EQ(ERROR_GEN_FAILURE, GetLastError());
}

TEST_F(SpoolerPorts, AFailedQueryLeavesTheMonitorsWordAndAnIdlePort)
{
    monitor.Locked([](TestMonitorScript& script) { script.queryError = WSAECONNREFUSED; });
    EXPECT_FALSE(Query(TEXT("ONE")));
    EXPECT_EQ(DWORD{WSAECONNREFUSED}, error);
    EXPECT_NE(std::string::npos, ErrorText().find("ONE"));
    ASSERT_EQ(1u, Documents().size());
    EXPECT_TRUE(Documents()[0].ended);
    monitor.Locked([](TestMonitorScript& script) { script.failingStarts = 1; });
    EXPECT_FALSE(Query(TEXT("ONE")));
    EXPECT_FALSE(Query(TEXT("THREE")));
    EXPECT_EQ(ERROR_UNKNOWN_PORT, error);
    monitor.Locked([](TestMonitorScript& script) { script.queryError = 0; });
    EXPECT_TRUE(Query(TEXT("ONE"))) << ErrorText();
}

TEST_F(SpoolerPorts, AQueryGivesWayToAJobOfAnyProcess)
{
    monitor.Locked([](TestMonitorScript& script) { script.heldPort = TEXT("ONE"); });
    const DWORD job = Print(TEXT("First"), "card");
    AwaitPhase(job, JOB_PHASE_WRITING);
    EXPECT_FALSE(Query(TEXT("one")));
    EXPECT_EQ(ERROR_BUSY, error);
    EXPECT_FALSE(CheckPort(TEXT("ONE")));
    EXPECT_EQ(ERROR_BUSY, GetLastError());
    EXPECT_TRUE(Query(TEXT("TWO"))) << ErrorText();
    monitor.Locked([](TestMonitorScript& script) { script.heldPort.clear(); });
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    EXPECT_TRUE(Query(TEXT("ONE"))) << ErrorText();

    Companion printing("print");
    printing.Report();
    EXPECT_FALSE(Query(TEXT("ONE")));
    EXPECT_EQ(ERROR_BUSY, error);
    printing.Kill();
    EXPECT_TRUE(Query(TEXT("ONE"))) << ErrorText();
}

// Both jobs come while the query has the port: one is to print behind it, the other to be dropped.
TEST_F(SpoolerPorts, JobsWaitForAQueryAndAreNotForgotten)
{
    RunAcceptedJobs(false);
    const DWORD cancelled = Print(TEXT("First"), "unwanted");
    Hold(true);
    bool answered = false;
    std::thread asking([&] { answered = Query(TEXT("ONE")); });
    AwaitQuery();
    const Handle printer(TEXT("First"));
    EXPECT_TRUE(SetJobW(printer, cancelled, 0, nullptr, JOB_CONTROL_DELETE));
    EXPECT_EQ(DWORD{JOB_PHASE_QUEUED}, ProgressOf(cancelled).phase);
    Hold(false);
    asking.join();
    EXPECT_TRUE(answered);
    EXPECT_EQ(DWORD{JOB_OUTCOME_DELETED}, ProgressOf(cancelled).outcome);

    RunAcceptedJobs(true);
    Hold(true);
    monitor.Locked([](TestMonitorScript& script) { script.queries.clear(); });
    asking = std::thread([&] { answered = Query(TEXT("ONE")); });
    AwaitQuery();
    const DWORD job = Print(TEXT("First"), "card");
    EXPECT_EQ(1, monitor.Locked([](TestMonitorScript& script) {
        return std::ranges::count_if(script.documents, [](auto& each) { return !each.ended; });
    })) << "the query's own";
    Hold(false);
    asking.join();
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
}
