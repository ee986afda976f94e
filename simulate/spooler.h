#pragma once

#include <map>
#include <set>

#include "platform/platform.h"
#include "simulate/document.h"
#include "simulate/plan.h"

class World;

// The print spooler's half that monitors call: printers, jobs. Its calls may be slow, fail, and come back
// into the monitor.
class Spooler {
public:
    Spooler(World& world, Plan& plan);

    HANDLE Open();  // null: refused
    void Close(HANDLE printer);
    bool ReadJob(HANDLE printer, DWORD job, JOB_INFO_2W* record);
    bool Command(HANDLE printer, DWORD job, DWORD command);

    // The user deletes a job.
    void DeleteJob(DWORD job) { going.insert(job); }
    bool IsGoing(DWORD job) const { return going.contains(job); }
    std::size_t OpenPrinters() const { return printers.size(); }

private:
    void Linger(bool& isDue, simulated::Micros length);

    World& world;
    std::map<HANDLE, Document*> printers;
    std::uintptr_t printersMade = 0;
    std::set<DWORD> going;  // jobs on their way out
    simulated::Micros slowOpen;
    bool openIsSlow;
    simulated::Micros slowCommand;
    bool commandIsSlow;
    bool refusesOnce;
    bool comesBack;
};
