#include "spooler/printers.h"

#include "platform/posix/utf.h"
#include "spooler/job_store.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

// A comma begins the options of an open name, a backslash a server's name.
bool IsOpenable(const WideString& name)
{
    return !name.empty() && name.find_first_of(TEXT(",\\")) == WideString::npos;
}

Printer Read(const Database::Statement& row)
{
    return {row.Text(0), row.Text(1), row.Text(2)};
}

}  // namespace

void Printers::Add(const Printer& printer)
{
    if (!IsOpenable(printer.name))
        Throw(ERROR_INVALID_PRINTER_NAME,
              "A printer's name has at least one character, and no comma or backslash.");
    Database::Change change(*database);
    const int added = change.Do("INSERT OR IGNORE INTO printers (name, port, monitor) VALUES (?, ?, ?)",
                                printer.name, printer.port, printer.monitor);
    if (added == 0)
        Throw(ERROR_PRINTER_ALREADY_EXISTS, "There is a printer \"" + ToUtf8(printer.name) + "\" already.");
    change.Commit();
}

void Printers::Remove(const WideString& name)
{
    Database::Change change(*database);
    if (change.Ask("SELECT 1 FROM jobs WHERE printer = ? AND state < ? LIMIT 1", name, kFirstFinishedState)
            .Next())
        Throw(ERROR_PRINTER_HAS_JOBS_QUEUED,
              "The printer \"" + ToUtf8(name) + "\" still has jobs. Wait for them or delete them.");
    if (change.Do("DELETE FROM printers WHERE name = ?", name) == 0)
        Throw(ERROR_INVALID_PRINTER_NAME, "There is no printer \"" + ToUtf8(name) + "\".");
    change.Commit();
}

std::optional<Printer> Printers::Find(WideStringView name)
{
    Database::Use use(*database);
    auto row = use.Ask("SELECT name, port, monitor FROM printers WHERE name = ?", name);
    if (!row.Next())
        return std::nullopt;
    return Read(row);
}

std::vector<Printer> Printers::List()
{
    Database::Use use(*database);
    std::vector<Printer> all;
    auto row = use.Ask("SELECT name, port, monitor FROM printers ORDER BY name");
    while (row.Next())
        all.push_back(Read(row));
    return all;
}

}  // namespace spooler
