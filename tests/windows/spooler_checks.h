#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

// The actions of spooler_host; each takes the words behind its name.
void Install(const std::vector<std::string>& words);
void Uninstall(const std::vector<std::string>& words);
void CheckUnaided(const std::vector<std::string>& words);
void CheckPorts(const std::vector<std::string>& words);
void CheckRestarted(const std::vector<std::string>& words);
void CheckPrinting(const std::vector<std::string>& words);
void AddDriver(const std::vector<std::string>& words);
void AddCheckPrinter(const std::vector<std::string>& words);
void DeleteCheckPrinter(const std::vector<std::string>& words);
void CheckLoads(const std::vector<std::string>& words);

// --- pieces -------------------------------------------------------------------------------------------

inline constexpr const wchar_t* kMonitorName = L"Remote TCP/IP Card Printer Port";
inline const std::wstring kMonitorSession = std::wstring(L",XcvMonitor ") + kMonitorName;

// Names of all ports that the spooler lists at level 1 or 2; at level 2 only those that say that they are of
// our monitor. Checks the call itself too.
std::vector<std::wstring> PortNames(DWORD level);
