#include "spooler/monitor_host.h"

#include <algorithm>
#include <optional>

#include "platform/platform.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

bool SameName(const WideString& left, const WideString& right)
{
    return lstrcmpiW(left.c_str(), right.c_str()) == 0;
}

}  // namespace

MonitorHost::MonitorHost(std::shared_ptr<Database> owner, std::shared_ptr<Registry> settings)
    : database(std::move(owner)), registry(std::move(settings))
{
}

std::vector<MonitorHost::Known> MonitorHost::List()
{
    Database::Use use(*database);
    std::vector<Known> all;
    auto row = use.Ask("SELECT name, library FROM monitors ORDER BY id");
    while (row.Next())
        all.push_back({row.Text(0), row.Text(1)});
    return all;
}

void MonitorHost::Add(const WideString& name, const WideString& library)
{
    const std::string installed = "The monitor \"" + ToUtf8(name) + "\" is installed already.";
    for (const Known& known : List())
        if (SameName(known.name, name))
            Throw(ERROR_PRINT_MONITOR_ALREADY_INSTALLED, installed);
    // A name with a folder is kept absolute: it has to be found from any current folder.
    const bool bare = library.find(TEXT('/')) == WideString::npos;
    const Known added = {name, bare ? library : LibraryPath(library)};
    std::shared_ptr<Monitor> loaded;
    try {
        loaded = LoadKnown(added);
    } catch (...) {
        registry->RemoveRoot(name);  // what a monitor that didn't start has left
        throw;
    }
    Database::Change change(*database);
    if (change.Do("INSERT OR IGNORE INTO monitors (name, library) VALUES (?, ?)", added.name,
                  added.library) == 0)
        Throw(ERROR_PRINT_MONITOR_ALREADY_INSTALLED, installed);
    change.Commit();
}

void MonitorHost::Remove(const WideString& name)
{
    {
        Database::Change change(*database);
        if (change.Do("DELETE FROM monitors WHERE name = ?", name) == 0)
            Throw(ERROR_UNKNOWN_PRINT_MONITOR, "There is no monitor \"" + ToUtf8(name) + "\".");
        change.Commit();
    }
    std::shared_ptr<Monitor> removed;  // let go of behind the lock
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (const auto slot = FindSlot(name); slot != slots.end() && slot->monitor != nullptr) {
            removed = std::move(slot->monitor);
            slots.erase(slot);
        }
    }
    removed.reset();
    registry->RemoveRoot(name);
}

std::vector<MonitorHost::Slot>::iterator MonitorHost::FindSlot(const WideString& name)
{
    return std::find_if(slots.begin(), slots.end(),
                        [&](const Slot& slot) { return SameName(slot.name, name); });
}

void MonitorHost::Finish(const WideString& name, std::shared_ptr<Monitor> loaded)
{
    const std::lock_guard<std::mutex> guard(lock);
    const auto slot = FindSlot(name);
    if (loaded == nullptr)
        slots.erase(slot);
    else
        slot->monitor = std::move(loaded);
    loadingEnded.notify_all();
}

std::shared_ptr<Monitor> MonitorHost::LoadKnown(const Known& known)
{
    {
        std::unique_lock<std::mutex> guard(lock);
        for (auto slot = FindSlot(known.name); slot != slots.end(); slot = FindSlot(known.name)) {
            if (slot->monitor != nullptr)
                return slot->monitor;
            if (slot->loader == std::this_thread::get_id())
                return nullptr;
            loadingEnded.wait(guard);
        }
        slots.push_back({known.name, nullptr, std::this_thread::get_id()});
    }
    std::shared_ptr<Monitor> loaded;
    try {
        loaded = std::make_shared<Monitor>(registry, known.name, known.library);
    } catch (...) {
        Finish(known.name, nullptr);
        throw;
    }
    Finish(known.name, loaded);
    return loaded;
}

std::shared_ptr<Monitor> MonitorHost::Load(const WideString& name)
{
    for (const Known& known : List())
        if (SameName(known.name, name))
            return LoadKnown(known);
    return nullptr;
}

std::vector<std::shared_ptr<Monitor>> MonitorHost::LoadAll()
{
    std::vector<std::shared_ptr<Monitor>> loaded;
    std::optional<SpoolerError> firstFailure;
    for (const Known& known : List()) {
        try {
            if (std::shared_ptr<Monitor> monitor = LoadKnown(known); monitor != nullptr)
                loaded.push_back(std::move(monitor));
        } catch (const SpoolerError& error) {
            if (!firstFailure)
                firstFailure = error;
        }
    }
    if (loaded.empty() && firstFailure)
        throw SpoolerError(*firstFailure);
    return loaded;
}

void MonitorHost::UnloadAll()
{
    std::vector<Slot> unloaded;  // destroyed behind the lock
    const std::lock_guard<std::mutex> guard(lock);
    for (auto slot = slots.begin(); slot != slots.end();) {
        if (slot->monitor == nullptr) {
            ++slot;
            continue;
        }
        unloaded.push_back(std::move(*slot));
        slot = slots.erase(slot);
    }
}

std::shared_ptr<Monitor> MonitorHost::OwnerOfPort(WideStringView port)
{
    for (const std::shared_ptr<Monitor>& monitor : LoadAll())
        if (monitor->HasPort(port))
            return monitor;
    return nullptr;
}

}  // namespace spooler
