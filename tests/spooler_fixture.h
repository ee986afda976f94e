#pragma once

// A spooler on a state folder of its own, with the test's monitor ("TEST", ports ONE and TWO) and a
// printer on each port. Time runs fifty times as fast.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "spooler/spooler.h"
#include "tests/spooler_test_monitor.h"

// Another process on the same folder: this program, playing a part (see PlayPart). Killed with SIGKILL
// at the end of the scope at the latest.
class Companion {
public:
    explicit Companion(const std::string& part, DWORD argument = 0);
    ~Companion();
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

    // Waits for the part's report, the number of its job.
    DWORD Report();
    void Kill();
    // Waits for the part's own end; true if all went well.
    bool Succeeds();

private:
    pid_t process = -1;
    int output = -1;
};

// What a companion does; main() comes here.
int PlayPart(const std::string& part, DWORD argument);

class Handle {
public:
    explicit Handle(const WideString& name, ACCESS_MASK access = 0);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator HANDLE() const { return raw; }

private:
    HANDLE raw = nullptr;
};

// Prints to a printer; gives the job's number, 0 if it was not accepted.
DWORD Print(const WideString& printer, const std::string& document);
JOB_PROGRESS ProgressOf(DWORD job);
std::string ErrorText();
void RunAcceptedJobs(bool here, DWORD attemptLimit = 10);

class SpoolerTest : public testing::Test {
protected:
    SpoolerTest();
    ~SpoolerTest() override;

    // Waits, for a minute at most, until the job has come to an outcome.
    JOB_OUTCOME AwaitOutcome(DWORD job);
    void AwaitPhase(DWORD job, JOB_PHASE phase);
    static void AwaitThat(const std::function<bool()>& condition);
    // The documents that the ports were given so far, failed attempts included.
    std::vector<TestMonitorScript::Document> Documents();
    // The files of documents in the state folder.
    std::size_t DocumentFiles() const;
    void Restart();  // the spooler, not the process

    const std::string folder;
    TestMonitorControls& monitor;
};
