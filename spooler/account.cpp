#include "spooler/account.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace spooler {

Account CurrentAccount()
{
    std::vector<char> buffer(std::size_t{16} * 1024);
    passwd entry = {};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return {found->pw_name, found->pw_dir};
    return {std::to_string(geteuid()), ""};
}

}  // namespace spooler
