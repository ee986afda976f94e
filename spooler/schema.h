#pragma once

namespace spooler {

// The database's tables, at version kSchemaVersion (PRAGMA user_version).
inline constexpr int kSchemaVersion = 1;
inline constexpr int kApplicationId = 0x4641524C;  // "FARL"

// The values of jobs.state are JobState's (spooler/job_store.h). A row in state 'spooling' belongs to
// the process that holds a lock on its document.
inline constexpr const char* kSchema = R"(
CREATE TABLE monitors (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL COLLATE NAME UNIQUE,
    library TEXT NOT NULL
);
CREATE TABLE registry_keys (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER NOT NULL,  -- 0: the root key of a monitor, by the monitor's name
    name TEXT NOT NULL COLLATE NAME,
    written INTEGER NOT NULL DEFAULT (unixepoch()),
    UNIQUE (parent, name)
);
CREATE TABLE registry_values (
    key INTEGER NOT NULL REFERENCES registry_keys (id) ON DELETE CASCADE,
    name TEXT NOT NULL COLLATE NAME,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    PRIMARY KEY (key, name)
) WITHOUT ROWID;
CREATE TABLE printers (
    name TEXT NOT NULL COLLATE NAME PRIMARY KEY,
    port TEXT NOT NULL COLLATE NAME,
    monitor TEXT NOT NULL COLLATE NAME
) WITHOUT ROWID;
CREATE TABLE ports (  -- ports that ever had a job: the number is the offset of the port's lock
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL COLLATE NAME UNIQUE
);
CREATE TABLE jobs (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    printer TEXT NOT NULL COLLATE NAME,
    port INTEGER NOT NULL REFERENCES ports (id),
    monitor TEXT NOT NULL COLLATE NAME,
    document TEXT NOT NULL,
    user TEXT NOT NULL,
    machine TEXT NOT NULL,
    submitted INTEGER NOT NULL DEFAULT (unixepoch()),
    finished INTEGER NOT NULL DEFAULT 0,
    bytes INTEGER NOT NULL DEFAULT 0,
    state INTEGER NOT NULL,
    restart INTEGER NOT NULL DEFAULT 0,
    deleting INTEGER NOT NULL DEFAULT 0,
    sent INTEGER NOT NULL DEFAULT 0,
    attempts INTEGER NOT NULL DEFAULT 0,
    failures INTEGER NOT NULL DEFAULT 0,
    phase INTEGER NOT NULL DEFAULT 0,
    written INTEGER NOT NULL DEFAULT 0,
    last_error INTEGER NOT NULL DEFAULT 0,
    reason TEXT NOT NULL DEFAULT ''
);
CREATE INDEX jobs_of_port ON jobs (port, state);
CREATE INDEX jobs_of_printer ON jobs (printer);
INSERT INTO monitors (name, library) VALUES ('Remote TCP/IP Card Printer Port', 'Farlink.dll');
)";

}  // namespace spooler
