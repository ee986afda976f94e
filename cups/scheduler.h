#pragma once

#include <sys/types.h>

#include <string>

namespace farlink_cups {

// The cupsd that runs us, if there is one above us.
class Scheduler {
public:
    Scheduler();

    // Tells one life of cupsd from every other, its next start included. Empty if there is none above us.
    std::string Life() const;
    bool IsAlive() const;

private:
    pid_t process = 0;
    std::string startTime;
};

}  // namespace farlink_cups
