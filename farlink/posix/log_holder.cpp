#include "farlink/posix/log_holder.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <fstream>

namespace farlink {

bool LogIsHeld(const std::string& path)
{
    struct stat log;
    if (stat(path.c_str(), &log) != 0)
        return false;
    char place[64];  // "08:01:1234"
    (void)std::snprintf(place, sizeof place, " %02x:%02x:%llu ", major(log.st_dev), minor(log.st_dev),
                        static_cast<unsigned long long>(log.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string lock; std::getline(locks, lock);)
        if (lock.find(" FLOCK ") != std::string::npos && lock.find(place) != std::string::npos)
            return true;
    return false;
}

}  // namespace farlink
