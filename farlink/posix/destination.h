#pragma once

#include <string>

#include "spooler/port_settings.h"

namespace farlink {

// The port that documents go to. `named` is a port's name or HOST:PORT; when it is empty, $FARLINK_PORT says,
// or it is the only port there is.
class Destination {
public:
    // Throws Failure.
    explicit Destination(std::string named);

    const std::string& Name() const { return name; }
    // As it stands at this moment. Throws SpoolerError.
    spooler::PortSettings Settings() const;
    spooler::LogSettings Log() const;

private:
    std::string name;
    bool isStored;
    spooler::PortSettings given;  // of HOST:PORT
};

}  // namespace farlink
