#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "platform/platform.h"

struct sqlite3;
struct sqlite3_stmt;

namespace spooler {

// The state folder's SQLite database. Text that comes from the platform's side is UTF-16 and is kept
// as it is; columns of names are compared by the platform's own rule (lstrcmpiW) through the
// collation NAME. Every failure throws SpoolerError with a text that names the file.
//
// One connection serves all threads, one at a time: a thread holds it through a Use or a Change, for
// the few statements that belong together and never across a call into a monitor.
class Database {
public:
    // Opens or makes the file, for its owner alone, and brings it to the present schema. A damaged file is
    // refused here, before anything is made of what it holds. ":memory:" is one that ends with the object.
    explicit Database(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // A statement that has its arguments. Lives within the Use that it came from; each SQL text may
    // be under way once at a time.
    class Statement {
    public:
        ~Statement();
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;

        bool Next();  // false past the last row
        std::int64_t Integer(int column) const;
        WideString Text(int column) const;
        std::string Utf8(int column) const;
        std::vector<BYTE> Bytes(int column) const;

    private:
        friend class Database;
        template <typename... Arguments>
        Statement(Database& owner, sqlite3_stmt* prepared, const Arguments&... arguments)
            : database(owner), raw(prepared)
        {
            int index = 0;
            (BindOne(++index, arguments), ...);
        }
        template <typename Argument>
        void BindOne(int index, const Argument& argument)
        {
            if constexpr (std::integral<Argument>)
                Bind(index, static_cast<std::int64_t>(argument));
            else
                Bind(index, argument);
        }
        void Bind(int index, std::int64_t value);
        void Bind(int index, WideStringView value);
        void Bind(int index, const std::string& value);
        void Bind(int index, std::span<const BYTE> value);

        Database& database;
        sqlite3_stmt* raw;
    };

    class Use {
    public:
        explicit Use(Database& owner) : database(owner), lock(owner.connectionLock) {}

        template <typename... Arguments>
        Statement Ask(const char* sql, const Arguments&... arguments)
        {
            return Statement(database, database.Prepared(sql), arguments...);
        }

        // Runs a statement without rows; gives the number of rows that it changed.
        template <typename... Arguments>
        int Do(const char* sql, const Arguments&... arguments)
        {
            Ask(sql, arguments...).Next();
            return RowsChanged();
        }

        std::int64_t LastId() const;

    protected:
        Database& database;

    private:
        int RowsChanged() const;

        std::lock_guard<std::recursive_mutex> lock;
    };

    // A Use whose changes take effect together at Commit, and not at all without it. Inside another one of
    // the same thread it takes effect with that one.
    class Change : public Use {
    public:
        explicit Change(Database& owner);
        ~Change();
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;
        void Commit();

    private:
        const bool outermost;
        bool open = true;
    };

private:
    sqlite3_stmt* Prepared(const char* sql);
    void Execute(const char* sql);
    void Configure();
    void SwitchToWal();
    void CheckStructure();
    void BringToSchema();
    void SetVersion();
    int ReadPragma(const char* sql);
    void Close();
    [[noreturn]] void Fail(int result);

    std::string path;
    std::recursive_mutex connectionLock;
    int changesUnderWay = 0;  // of the thread that holds the lock
    sqlite3* connection = nullptr;
    std::map<std::string, sqlite3_stmt*, std::less<>> prepared;
};

}  // namespace spooler
