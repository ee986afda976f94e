#pragma once

// How a person or the system asks this process to end while documents print.
namespace farlink {

// From here on SIGINT, SIGTERM and SIGHUP only leave a mark; a second SIGINT ends the process at once, with
// status 130. A reader of our output that goes away no longer ends the process. Call it before the
// spooler starts any thread. On Windows Ctrl-C and Ctrl-Break count as SIGINT; closing the window, logging
// off and shutting down count as SIGTERM, after which the system leaves the process a few seconds.
void CatchInterrupts();

bool InterruptAsked();  // Ctrl-C: the person doesn't want it any more
bool EndAsked();        // SIGTERM or SIGHUP: the system wants the process to go

}  // namespace farlink
