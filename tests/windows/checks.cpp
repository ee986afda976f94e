#include "tests/windows/checks.h"

#include <cstdio>

namespace checks {

namespace {

int passedCount = 0;
int failedCount = 0;

}  // namespace

bool Check(bool passed, const std::string& name, const std::string& detail)
{
    ++(passed ? passedCount : failedCount);
    if (passed)
        std::printf("ok %s\n", name.c_str());
    else
        std::printf("FAILED %s: %s\n", name.c_str(), detail.c_str());
    std::fflush(stdout);  // what was seen before a crash stays
    return passed;
}

bool CheckEqual(unsigned long long word, unsigned long long wanted, const std::string& name)
{
    return Check(word == wanted, name, std::to_string(word) + ", not " + std::to_string(wanted));
}

int Finish()
{
    std::printf("%d passed, %d failed\n", passedCount, failedCount);
    std::fflush(stdout);
    return failedCount == 0 && passedCount > 0 ? 0 : 1;
}

}  // namespace checks
