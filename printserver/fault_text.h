#pragma once

#include "printserver/faults.h"

#include <string>

namespace printserver {

// A fault in words, as a command line has it:
//
//   bind-reply:reset                     each time
//   version-reply:error=4#2              the second time only
//   data-middle:silence@100000           when 100000 bytes of the document have arrived
//
// A value is a number, for `delay` seconds with a point if need be, or bytes in hexadecimal.
struct PlannedFault {
    Step step;
    Fault fault;
    int occurrence;  // 0: each time
};

// Throws std::invalid_argument with one sentence for the person at the terminal.
PlannedFault ParseFault(const std::string& text);

// All steps and all kinds with their values, in a few lines.
std::string FaultHelp();

}  // namespace printserver
