#pragma once

#include <memory>

#include "platform/platform.h"
#include "spooler/database.h"
#include "spooler/monitor_host.h"
#include "spooler/registry.h"
#include "spooler/state_folder.h"

namespace spooler {

// The state folder in use, with the monitors that serve it: what ports are kept and changed with. Documents
// are printed apart from it (spooler/printing.h). The entry functions take it for the length of a call.
class Instance {
public:
    // The process's instance, opened at the first call and again after a shutdown. Throws SpoolerError.
    static std::shared_ptr<Instance> Get();
    // See ShutdownSpooler.
    static void Shutdown();

    Instance();

    const StateFolder folder;
    const std::shared_ptr<Database> database;
    const std::shared_ptr<Registry> registry;
    const std::shared_ptr<MonitorHost> monitors;
};

}  // namespace spooler
