#pragma once

#include <string>

namespace spooler {

// The user that this process runs as. A user without an entry goes by the number, and has no home.
struct Account {
    std::string name;
    std::string home;
};
Account CurrentAccount();

}  // namespace spooler
