#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

// What an administrator asks of the monitor, each through an Xcv session of its own. Every function
// throws Failure with the monitor's error word.
namespace farlink {

// The command channel is the number plus 2, so the last two numbers serve no port.
inline constexpr int kLastPortNumber = 65533;

struct PortSettings {
    WideString name;    // at most 65 UTF-16 units
    WideString server;  // at most 48
    std::uint16_t number = 0;
};

struct KeepAlive {
    std::uint16_t period = 0;   // seconds
    std::uint16_t timeout = 0;  // seconds
};

void AddPort(const PortSettings& settings);
void DeletePort(const WideString& name);
PortSettings GetPort(const WideString& name);
void SetPort(const PortSettings& settings);

KeepAlive GetKeepAlive(const WideString& port);
void SetKeepAlive(const WideString& port, KeepAlive values);
KeepAlive GetDefaultKeepAlive();

WideString GetAboutText();
WideString GetUserInterfaceLibrary();

}  // namespace farlink
