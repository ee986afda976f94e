#include "spooler/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "spooler/schema.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr int kBusyTimeoutMs = 10000;
constexpr int kSwitchPollMs = 10;

WideString Terminated(int bytes, const void* text)
{
    return WideString(static_cast<const WCHAR*>(text), static_cast<std::size_t>(bytes) / sizeof(WCHAR));
}

int CompareNames(void*, int leftBytes, const void* left, int rightBytes, const void* right)
{
    return lstrcmpiW(Terminated(leftBytes, left).c_str(), Terminated(rightBytes, right).c_str());
}

// `systemError` is the errno value behind a failed read or write.
DWORD WordOf(int result, int systemError)
{
    switch (result & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return ERROR_BUSY;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return ERROR_FILE_CORRUPT;
        case SQLITE_READONLY:
            return ERROR_WRITE_PROTECT;
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN:
            return ERROR_ACCESS_DENIED;
        case SQLITE_FULL:
            return ERROR_DISK_FULL;
        case SQLITE_IOERR:
            return WordOfErrno(systemError);
        case SQLITE_NOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_GEN_FAILURE;
    }
}

const char* AdviceOn(DWORD word)
{
    switch (word) {
        case ERROR_BUSY:
            return "Another process holds it; try again.";
        case ERROR_FILE_CORRUPT:
            return "Restore the state folder from a backup, or move the folder away to start afresh.";
        case ERROR_WRITE_PROTECT:
        case ERROR_ACCESS_DENIED:
            return "Check who owns the folder and whether it can be written, or choose another with "
                   "FARLINK_STATE.";
        case ERROR_DISK_FULL:
            return "Make room on its disk.";
        default:
            return "See the folder and its disk.";
    }
}

// The library would make the file by the process's mask, and gives its helper files the same rights.
void MakePrivate(const std::string& path)
{
    if (path == ":memory:")
        return;
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0)
        return;  // the library says why
    (void)fchmod(file, 0600);
    close(file);
}

}  // namespace

Database::Database(const std::string& file) : path(file)
{
    try {
        MakePrivate(path);
        const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
        if (const int result = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
            result != SQLITE_OK)
            Fail(result);
        Configure();
        CheckStructure();
        BringToSchema();
    } catch (...) {
        Close();
        throw;
    }
}

Database::~Database()
{
    Close();
}

void Database::Close()
{
    for (const auto& [sql, statement] : prepared)
        sqlite3_finalize(statement);
    prepared.clear();
    sqlite3_close(connection);
    connection = nullptr;
}

void Database::Configure()
{
    sqlite3_extended_result_codes(connection, 1);
    sqlite3_busy_timeout(connection, kBusyTimeoutMs);
    const int result =
        sqlite3_create_collation(connection, "NAME", SQLITE_UTF16_ALIGNED, nullptr, CompareNames);
    if (result != SQLITE_OK)
        Fail(result);
    if (sqlite3_db_readonly(connection, "main") == 1)
        Fail(SQLITE_READONLY);
    Execute("PRAGMA encoding = 'UTF-16le'");
    SwitchToWal();
    Execute("PRAGMA synchronous = FULL");
    Execute("PRAGMA foreign_keys = ON");
}

// Of several processes that open a new file, all but one are refused here without any wait: the library's
// own patience would be a deadlock, as each holds what the other needs.
void Database::SwitchToWal()
{
    for (int waitedMs = 0;; waitedMs += kSwitchPollMs) {
        try {
            Execute("PRAGMA journal_mode = WAL");
            return;
        } catch (const SpoolerError& error) {
            if (error.word != ERROR_BUSY || waitedMs >= kBusyTimeoutMs)
                throw;
        }
        sqlite3_sleep(kSwitchPollMs);
    }
}

// Settings that can't be read would look like settings that aren't there.
void Database::CheckStructure()
{
    Statement check(*this, Prepared("PRAGMA quick_check(1)"));
    if (!check.Next() || check.Utf8(0) != "ok")
        Fail(SQLITE_CORRUPT);
}

void Database::BringToSchema()
{
    // Two processes may find the new file at once: the second looks again when the first is through.
    Execute("BEGIN IMMEDIATE");
    const int version = ReadPragma("PRAGMA user_version");
    const int application = ReadPragma("PRAGMA application_id");
    if (version == 0 && application == 0 && ReadPragma("SELECT count(*) FROM sqlite_master") == 0) {
        Execute(kSchema);
        SetVersion();
    } else if (application != kApplicationId) {
        Throw(ERROR_FILE_CORRUPT, "The file " + path + " is not a database of this spooler. Move it away.");
    } else if (version == kVersionWithJobs) {
        Execute(kDropJobs);
        SetVersion();
    } else if (version != kSchemaVersion) {
        Throw(ERROR_REVISION_MISMATCH, "The state database " + path + " has version " +
                                           std::to_string(version) + ", this program knows version " +
                                           std::to_string(kSchemaVersion) +
                                           ". Use the program that made it, or choose another folder with "
                                           "FARLINK_STATE.");
    }
    Execute("COMMIT");
}

void Database::SetVersion()
{
    Execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
}

int Database::ReadPragma(const char* sql)
{
    Statement statement(*this, Prepared(sql));
    statement.Next();
    return static_cast<int>(statement.Integer(0));
}

void Database::Execute(const char* sql)
{
    errno = 0;  // of an earlier call
    if (const int result = sqlite3_exec(connection, sql, nullptr, nullptr, nullptr); result != SQLITE_OK)
        Fail(result);
}

sqlite3_stmt* Database::Prepared(const char* sql)
{
    if (const auto known = prepared.find(sql); known != prepared.end())
        return known->second;
    sqlite3_stmt* statement = nullptr;
    const int result =
        sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK)
        Fail(result);
    prepared.emplace(sql, statement);
    return statement;
}

void Database::Fail(int result)
{
    // sqlite3_system_errno has it of some failures only.
    const DWORD word = WordOf(result, errno);
    const char* detail = connection == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(connection);
    // The library has no message of its own for a result that we found out ourselves, and one that tells
    // nothing for a full disk whose error isn't the usual one.
    if (word == ERROR_DISK_FULL)
        detail = sqlite3_errstr(SQLITE_FULL);
    else if (connection != nullptr && sqlite3_errcode(connection) == SQLITE_OK)
        detail = sqlite3_errstr(result);
    Throw(word, "The state database " + path + " can't be used: " + detail + ". " + AdviceOn(word));
}

Database::Statement::~Statement()
{
    sqlite3_reset(raw);
    sqlite3_clear_bindings(raw);
}

bool Database::Statement::Next()
{
    errno = 0;  // of an earlier call
    const int result = sqlite3_step(raw);
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        database.Fail(result);
    return result == SQLITE_ROW;
}

std::int64_t Database::Statement::Integer(int column) const
{
    return sqlite3_column_int64(raw, column);
}

WideString Database::Statement::Text(int column) const
{
    const void* text = sqlite3_column_text16(raw, column);
    return text == nullptr ? WideString() : Terminated(sqlite3_column_bytes16(raw, column), text);
}

std::string Database::Statement::Utf8(int column) const
{
    const unsigned char* text = sqlite3_column_text(raw, column);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

std::vector<BYTE> Database::Statement::Bytes(int column) const
{
    const BYTE* data = static_cast<const BYTE*>(sqlite3_column_blob(raw, column));
    return std::vector<BYTE>(data, data + sqlite3_column_bytes(raw, column));
}

void Database::Statement::Bind(int index, std::int64_t value)
{
    sqlite3_bind_int64(raw, index, value);
}

void Database::Statement::Bind(int index, WideStringView value)
{
    const int bytes = static_cast<int>(value.size() * sizeof(WCHAR));
    sqlite3_bind_text16(raw, index, bytes == 0 ? TEXT("") : value.data(), bytes, SQLITE_TRANSIENT);
}

void Database::Statement::Bind(int index, const std::string& value)
{
    sqlite3_bind_text(raw, index, value.c_str(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
}

void Database::Statement::Bind(int index, std::span<const BYTE> value)
{
    sqlite3_bind_blob64(raw, index, value.empty() ? static_cast<const void*>("") : value.data(), value.size(),
                        SQLITE_TRANSIENT);
}

std::int64_t Database::Use::LastId() const
{
    return sqlite3_last_insert_rowid(database.connection);
}

int Database::Use::RowsChanged() const
{
    return sqlite3_changes(database.connection);
}

Database::Change::Change(Database& owner) : Use(owner), outermost(owner.changesUnderWay == 0)
{
    database.Execute(outermost ? "BEGIN IMMEDIATE" : "SAVEPOINT inner");
    ++database.changesUnderWay;
}

Database::Change::~Change()
{
    --database.changesUnderWay;
    if (open)
        sqlite3_exec(database.connection, outermost ? "ROLLBACK" : "ROLLBACK TO inner; RELEASE inner",
                     nullptr, nullptr, nullptr);
}

void Database::Change::Commit()
{
    database.Execute(outermost ? "COMMIT" : "RELEASE inner");
    open = false;
}

}  // namespace spooler
