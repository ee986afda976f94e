#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "spooler/database.h"

namespace spooler {

// The persistent settings of the monitors: keys that hold keys and typed values, as on the platform.
// Names ignore case and are kept as first given; a name is one name, whatever characters are in it.
// The operations throw SpoolerError with the platform's word for what a key or value is not:
// ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED (the key itself has gone), ERROR_ACCESS_DENIED.
class Registry {
public:
    using Key = std::int64_t;

    struct Value {
        DWORD type = 0;
        std::vector<BYTE> data;
    };
    struct Named {
        WideString name;
        std::int64_t written = 0;  // Unix time of the key's last change; 0 for a value
    };
    struct Counts {
        DWORD keys = 0;
        DWORD longestKey = 0;  // characters
        DWORD values = 0;
        DWORD longestName = 0;   // characters
        DWORD largestValue = 0;  // bytes
        std::int64_t written = 0;
    };

    // What the calling thread stores while this stands takes effect together at Commit, and not at all
    // without it: a command of several values is never half carried out, wherever its process ends. A look at
    // values and a removal by the same thread commit what came before them.
    class Batch {
    public:
        explicit Batch(Registry& owner);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;
        void Commit();

    private:
        friend class Registry;
        struct Stored {
            Key key;
            WideString name;
            Value value;
        };
        Registry& registry;
        Batch* const outer;
        std::vector<Stored> waiting;
    };

    explicit Registry(std::shared_ptr<Database> owner) : database(std::move(owner)) {}

    // The root key of a monitor, made if need be.
    Key Root(WideStringView monitor);
    // Removes a monitor's root key with all below it; nothing if there is none.
    void RemoveRoot(WideStringView monitor);

    // `made` may be null.
    Key Create(Key parent, WideStringView name, bool* made = nullptr);
    Key Open(Key parent, WideStringView name);
    std::optional<Key> Find(Key parent, WideStringView name);
    // Refuses a key that holds keys with ERROR_ACCESS_DENIED.
    void Remove(Key parent, WideStringView name);
    // In the order of the names.
    std::vector<Named> Keys(Key key);
    std::vector<Named> Values(Key key);
    Counts Count(Key key);

    void SetValue(Key key, WideStringView name, DWORD type, std::span<const BYTE> data);
    Value GetValue(Key key, WideStringView name);
    std::optional<Value> FindValue(Key key, WideStringView name);
    void RemoveValue(Key key, WideStringView name);

    // Moves on with every change that this process makes.
    unsigned Generation() const { return generation; }

private:
    void CommitBatch();
    void MustExist(Database::Use& use, Key key);
    std::vector<Named> Names(Key key, const char* sql);

    // Shared: a monitor that a last call is still inside keeps its settings within reach.
    std::shared_ptr<Database> database;
    std::atomic<unsigned> generation = 0;
};

}  // namespace spooler
