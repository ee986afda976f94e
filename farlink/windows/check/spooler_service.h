#pragma once

namespace farlink {

// Stops the spooler's service and starts it again. Throws Failure, with the spooler running if it can be
// started.
void RestartSpooler();

}  // namespace farlink
