#pragma once

#include <stop_token>

namespace farlink {

// From here on SIGINT, SIGTERM and SIGHUP ask for the stop that this gives, on a thread of their own,
// whatever the process is blocked in; SIGHUP stays ignored if it was. Should the process still be there some
// seconds later, or when another signal comes after the first second, it ends with status 3. A reader of our
// output that goes away no longer ends the process. Once, before any other thread is started. Throws Failure.
std::stop_token WatchSignals();

}  // namespace farlink
