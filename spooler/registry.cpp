#include "spooler/registry.h"

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr Registry::Key kNoParent = 0;

thread_local Registry::Batch* currentBatch = nullptr;

std::optional<Registry::Key> FindKey(Database::Use& use, Registry::Key parent, WideStringView name)
{
    auto row = use.Ask("SELECT id FROM registry_keys WHERE parent = ? AND name = ?", parent, name);
    if (!row.Next())
        return std::nullopt;
    return row.Integer(0);
}

Registry::Key Insert(Database::Use& use, Registry::Key parent, WideStringView name)
{
    use.Do("INSERT INTO registry_keys (parent, name) VALUES (?, ?)", parent, name);
    return use.LastId();
}

}  // namespace

Registry::Batch::Batch(Registry& owner) : registry(owner), outer(currentBatch)
{
    currentBatch = this;
}

Registry::Batch::~Batch()
{
    currentBatch = outer;
}

void Registry::Batch::Commit()
{
    if (waiting.empty())
        return;
    Database::Change change(*registry.database);
    for (const Stored& stored : waiting) {
        registry.MustExist(change, stored.key);
        change.Do(
            "INSERT INTO registry_values (key, name, type, data) VALUES (?, ?, ?, ?) "
            "ON CONFLICT (key, name) DO UPDATE SET type = excluded.type, data = excluded.data",
            stored.key, stored.name, stored.value.type, std::span<const BYTE>(stored.value.data));
        change.Do("UPDATE registry_keys SET written = unixepoch() WHERE id = ?", stored.key);
    }
    change.Commit();
    waiting.clear();
    ++registry.generation;
}

void Registry::CommitBatch()
{
    if (currentBatch != nullptr && &currentBatch->registry == this)
        currentBatch->Commit();
}

void Registry::MustExist(Database::Use& use, Key key)
{
    if (!use.Ask("SELECT 1 FROM registry_keys WHERE id = ?", key).Next())
        Throw(ERROR_KEY_DELETED, "The settings key has been deleted.");
}

Registry::Key Registry::Root(WideStringView monitor)
{
    if (const std::optional<Key> known = Find(kNoParent, monitor))
        return *known;  // without a change, for which others might have to wait
    Database::Change change(*database);
    const std::optional<Key> found = FindKey(change, kNoParent, monitor);
    const Key root = found ? *found : Insert(change, kNoParent, monitor);
    change.Commit();
    return root;
}

void Registry::RemoveRoot(WideStringView monitor)
{
    Database::Change change(*database);
    change.Do(
        "WITH RECURSIVE doomed (id) AS ("
        "  SELECT id FROM registry_keys WHERE parent = 0 AND name = ?"
        "  UNION SELECT registry_keys.id FROM registry_keys JOIN doomed ON parent = doomed.id)"
        "DELETE FROM registry_keys WHERE id IN doomed",
        monitor);
    change.Commit();
    ++generation;
}

Registry::Key Registry::Create(Key parent, WideStringView name, bool* made)
{
    Database::Change change(*database);
    MustExist(change, parent);
    const std::optional<Key> found = FindKey(change, parent, name);
    const Key key = found ? *found : Insert(change, parent, name);
    change.Commit();
    if (made != nullptr)
        *made = !found;
    if (!found)
        ++generation;
    return key;
}

std::optional<Registry::Key> Registry::Find(Key parent, WideStringView name)
{
    Database::Use use(*database);
    return FindKey(use, parent, name);
}

Registry::Key Registry::Open(Key parent, WideStringView name)
{
    if (const std::optional<Key> found = Find(parent, name))
        return *found;
    Database::Use use(*database);
    MustExist(use, parent);
    Throw(ERROR_FILE_NOT_FOUND, "There is no such settings key.");
}

void Registry::Remove(Key parent, WideStringView name)
{
    CommitBatch();
    Database::Change change(*database);
    MustExist(change, parent);
    const std::optional<Key> found = FindKey(change, parent, name);
    if (!found)
        Throw(ERROR_FILE_NOT_FOUND, "There is no such settings key.");
    if (change.Ask("SELECT 1 FROM registry_keys WHERE parent = ? LIMIT 1", *found).Next())
        Throw(ERROR_ACCESS_DENIED, "The settings key holds other keys.");
    change.Do("DELETE FROM registry_keys WHERE id = ?", *found);
    change.Commit();
    ++generation;
}

std::vector<Registry::Named> Registry::Names(Key key, const char* sql)
{
    Database::Use use(*database);
    MustExist(use, key);
    std::vector<Named> names;
    auto row = use.Ask(sql, key);
    while (row.Next())
        names.push_back({row.Text(0), row.Integer(1)});
    return names;
}

std::vector<Registry::Named> Registry::Keys(Key key)
{
    return Names(key, "SELECT name, written FROM registry_keys WHERE parent = ? ORDER BY name");
}

std::vector<Registry::Named> Registry::Values(Key key)
{
    CommitBatch();
    return Names(key, "SELECT name, 0 FROM registry_values WHERE key = ? ORDER BY name");
}

Registry::Counts Registry::Count(Key key)
{
    CommitBatch();
    Database::Use use(*database);
    MustExist(use, key);
    Counts counts;
    auto keys = use.Ask(
        "SELECT count(*), max(length(CAST(name AS BLOB))) / 2 FROM registry_keys WHERE parent = ?", key);
    keys.Next();
    counts.keys = static_cast<DWORD>(keys.Integer(0));
    counts.longestKey = static_cast<DWORD>(keys.Integer(1));
    auto values = use.Ask(
        "SELECT count(*), max(length(CAST(name AS BLOB))) / 2, max(length(data)) FROM registry_values WHERE "
        "key = ?",
        key);
    values.Next();
    counts.values = static_cast<DWORD>(values.Integer(0));
    counts.longestName = static_cast<DWORD>(values.Integer(1));
    counts.largestValue = static_cast<DWORD>(values.Integer(2));
    auto written = use.Ask("SELECT written FROM registry_keys WHERE id = ?", key);
    written.Next();
    counts.written = written.Integer(0);
    return counts;
}

void Registry::SetValue(Key key, WideStringView name, DWORD type, std::span<const BYTE> data)
{
    Batch::Stored stored{key, WideString(name), {type, {data.begin(), data.end()}}};
    if (currentBatch == nullptr || &currentBatch->registry != this) {
        Batch alone(*this);
        alone.waiting.push_back(std::move(stored));
        alone.Commit();
        return;
    }
    {
        Database::Use use(*database);
        MustExist(use, key);
    }
    currentBatch->waiting.push_back(std::move(stored));
}

std::optional<Registry::Value> Registry::FindValue(Key key, WideStringView name)
{
    CommitBatch();
    Database::Use use(*database);
    auto row = use.Ask("SELECT type, data FROM registry_values WHERE key = ? AND name = ?", key, name);
    if (!row.Next())
        return std::nullopt;
    return Value{static_cast<DWORD>(row.Integer(0)), row.Bytes(1)};
}

Registry::Value Registry::GetValue(Key key, WideStringView name)
{
    if (std::optional<Value> found = FindValue(key, name))
        return *std::move(found);
    Database::Use use(*database);
    MustExist(use, key);
    Throw(ERROR_FILE_NOT_FOUND, "There is no such setting.");
}

void Registry::RemoveValue(Key key, WideStringView name)
{
    CommitBatch();
    Database::Change change(*database);
    MustExist(change, key);
    if (change.Do("DELETE FROM registry_values WHERE key = ? AND name = ?", key, name) == 0)
        Throw(ERROR_FILE_NOT_FOUND, "There is no such setting.");
    change.Commit();
    ++generation;
}

}  // namespace spooler
