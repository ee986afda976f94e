#pragma once

#include <cstddef>
#include <string>

// The hosts under tests/windows/ are programs of their own, run one after the other by check.sh, which counts
// their lines.
namespace checks {

// Writes "ok NAME" or "FAILED NAME: DETAIL". Gives `passed`.
bool Check(bool passed, const std::string& name, const std::string& detail = {});

// "WORD, not WANTED" as the detail.
bool CheckEqual(unsigned long long word, unsigned long long wanted, const std::string& name);

// The process's exit status: 0 if every check passed, and there was one.
int Finish();

}  // namespace checks
