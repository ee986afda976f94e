#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/platform.h"
#include "spooler/database.h"

namespace spooler {

struct Printer {
    WideString name;
    WideString port;
    WideString monitor;
};

// The printers: names bound to a port of a monitor. Throws SpoolerError.
class Printers {
public:
    explicit Printers(std::shared_ptr<Database> owner) : database(std::move(owner)) {}

    // ERROR_INVALID_PRINTER_NAME for a name that couldn't be opened, ERROR_PRINTER_ALREADY_EXISTS.
    void Add(const Printer& printer);
    // ERROR_PRINTER_HAS_JOBS_QUEUED while there are jobs that are neither sent nor deleted.
    void Remove(const WideString& name);
    std::optional<Printer> Find(WideStringView name);
    std::vector<Printer> List();

private:
    std::shared_ptr<Database> database;
};

}  // namespace spooler
