#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/platform.h"

// The spooler's registry, behind the callbacks of MONITORREG. Each callback is a point where another thread
// may go on.
class Registry {
public:
    Registry();

    MONITORINIT Init();
    void Set(const WideString& key, const WideString& name, DWORD value);
    bool HasPort(const WideString& name) const { return keys.contains(TEXT("Ports\\") + name); }
    std::size_t OpenKeys() const { return handles.size(); }

private:
    struct Callbacks;
    using Values = std::map<WideString, std::vector<BYTE>>;

    HKEYMONITOR Open(const WideString& path);

    MONITORREG table{};
    std::map<WideString, Values> keys;  // by their path from the root
    std::map<HKEYMONITOR, WideString> handles;
    std::uintptr_t handlesMade = 1;
};
