#pragma once

#include <string_view>

// What cupsd hears from us: lines on standard error. Any thread. A line that cupsd doesn't take within a
// second is dropped, as printing goes on without it.
namespace farlink_cups {

// For people: the job's and the queue's status, in lpstat and in print dialogs.
void Info(std::string_view text);
// The same, for the last line of a run: cupsd keeps it when the run is over, and shows no Info after it.
void Error(std::string_view text);
// For cupsd's error log alone, once 'cupsctl --debug-logging' is on.
void Debug(std::string_view text);
// Adds a keyword to the queue's state reasons, or takes it away.
void SetReason(std::string_view keyword, bool stands);

}  // namespace farlink_cups
