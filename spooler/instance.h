#pragma once

#include <memory>

#include "platform/platform.h"
#include "spooler/database.h"
#include "spooler/job_store.h"
#include "spooler/monitor_host.h"
#include "spooler/printers.h"
#include "spooler/registry.h"
#include "spooler/runners.h"
#include "spooler/state_folder.h"

namespace spooler {

// The spooler at work on one state folder. The entry functions take it for the length of a call.
class Instance {
public:
    // The process's instance, opened at the first call and again after a shutdown. Throws SpoolerError.
    static std::shared_ptr<Instance> Get();
    // The same, or null when none is open.
    static std::shared_ptr<Instance> Opened();
    // See ShutdownSpooler. True when nothing was open.
    static bool Shutdown(DWORD waitMs);

    Instance();

    // Throws SpoolerError with ERROR_ACCESS_DENIED unless this process may change monitors and ports.
    void RequireAdministrator() const;

    const StateFolder folder;
    const std::shared_ptr<Database> database;
    const std::shared_ptr<Registry> registry;
    const std::shared_ptr<MonitorHost> monitors;
    const std::shared_ptr<Printers> printers;
    const std::shared_ptr<JobStore> jobs;
    const std::shared_ptr<Runners> runners;

private:
    void CleanUp();
};

}  // namespace spooler
