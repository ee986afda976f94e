#include "cups/scheduler.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace farlink_cups {

namespace {

struct Process {
    std::string name;
    pid_t parent = 0;
    std::string startTime;  // clock ticks since the machine's start
};

// The name is in parentheses and may have any characters in it.
Process Look(pid_t id)
{
    std::ifstream file("/proc/" + std::to_string(id) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t open = line.find('('), close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos)
        return {};
    Process process{line.substr(open + 1, close - open - 1), 0, {}};
    std::istringstream fields(line.substr(close + 1));
    std::string skipped;
    fields >> skipped >> process.parent;
    for (int field = 5; field <= 22; ++field)
        fields >> process.startTime;
    return process;
}

}  // namespace

// Another backend may stand between cupsd and us.
Scheduler::Scheduler()
{
    for (pid_t id = getppid(); id > 0;) {
        const Process look = Look(id);
        if (look.name == "cupsd") {
            process = id;
            startTime = look.startTime;
            return;
        }
        id = look.parent;
    }
}

std::string Scheduler::Life() const
{
    if (process == 0)
        return {};
    std::string boot;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
    return boot + '/' + std::to_string(process) + '/' + startTime;
}

bool Scheduler::IsAlive() const
{
    return process != 0 && Look(process).startTime == startTime;
}

}  // namespace farlink_cups
