#pragma once

namespace spooler {

// The database's tables, at version kSchemaVersion (PRAGMA user_version).
inline constexpr int kSchemaVersion = 2;
inline constexpr int kApplicationId = 0x4641524C;  // "FARL"

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
INSERT INTO monitors (name, library) VALUES ('Remote TCP/IP Card Printer Port', 'Farlink.dll');
)";

// Version 1 kept jobs, too. Its ports and settings are the same.
inline constexpr int kVersionWithJobs = 1;
inline constexpr const char* kDropJobs = "DROP TABLE jobs; DROP TABLE ports; DROP TABLE printers;";

}  // namespace spooler
