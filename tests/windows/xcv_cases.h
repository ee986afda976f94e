#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

enum class Session { Monitor, MonitorReader, Port, PortReader };

// One command, and what it is to answer.
struct XcvCase {
    const char* what;
    Session session;
    LPCWSTR command;
    std::vector<BYTE> input;
    DWORD outputSize;
    DWORD word;
    DWORD needed = 0;  // 0: not written
};

// What a monitor answers whatever ports it has. `aboutSize` is the size of its about text in bytes.
std::vector<XcvCase> CasesOfMonitor(DWORD aboutSize);

// What a monitor answers that has the port `port`; the last ones change its settings.
std::vector<XcvCase> CasesOfPort(const std::wstring& port);

std::vector<BYTE> PortRecord(const std::wstring& name, const std::wstring& server, WORD number,
                             DWORD version = 1);
std::vector<BYTE> TextInput(const std::wstring& text);  // with its NUL
std::vector<BYTE> VersionWord(DWORD version = 1);
