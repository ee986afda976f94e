#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "spooler/monitor.h"
#include "spooler/registry.h"

namespace spooler {

// The monitors that the state folder knows, loaded at first use. Throws SpoolerError. No lock is held
// while a monitor is loaded, asked or shut down: a monitor may call the spooler back at any moment.
class MonitorHost {
public:
    struct Known {
        WideString name;
        WideString library;
    };

    MonitorHost(std::shared_ptr<Database> owner, std::shared_ptr<Registry> settings);

    // ERROR_PRINT_MONITOR_ALREADY_INSTALLED, or what loading the library gave.
    void Add(const WideString& name, const WideString& library);
    // Forgets the monitor and its settings; it is shut down when its last user is out.
    // ERROR_UNKNOWN_PRINT_MONITOR.
    void Remove(const WideString& name);
    // In the order in which they were added.
    std::vector<Known> List();

    // Null for a name that no monitor has; its own failure for one that can't be loaded. While the
    // calling thread itself is loading the monitor, null.
    std::shared_ptr<Monitor> Load(const WideString& name);
    // All that can be loaded. If there are monitors and none can, the first one's failure.
    std::vector<std::shared_ptr<Monitor>> LoadAll();
    // Lets go of all that are loaded; each is shut down when its last user is out.
    void UnloadAll();
    // The monitor that lists the port, or null.
    std::shared_ptr<Monitor> OwnerOfPort(WideStringView port);

private:
    struct Slot {
        WideString name;
        std::shared_ptr<Monitor> monitor;  // null while `loader` loads it
        std::thread::id loader;
    };

    std::shared_ptr<Monitor> LoadKnown(const Known& known);
    std::vector<Slot>::iterator FindSlot(const WideString& name);
    void Finish(const WideString& name, std::shared_ptr<Monitor> loaded);

    std::shared_ptr<Database> database;
    std::shared_ptr<Registry> registry;

    std::mutex lock;  // slots
    std::condition_variable loadingEnded;
    std::vector<Slot> slots;
};

}  // namespace spooler
