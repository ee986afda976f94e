#pragma once

// A spooler on a state folder of its own, with the test's monitor ("TEST", ports ONE and TWO).

#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"
#include "spooler/spooler.h"
#include "tests/spooler_test_monitor.h"

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

std::string ErrorText();

// Another process on the same folder, which opens it; true if that goes well.
class Companion {
public:
    Companion();
    bool Succeeds();

private:
    pid_t process = -1;
};

class SpoolerTest : public testing::Test {
protected:
    SpoolerTest();
    ~SpoolerTest() override;

    void Restart();  // the spooler, not the process

    const std::string folder;
    TestMonitorControls& monitor;
};
