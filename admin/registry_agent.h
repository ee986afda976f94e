#pragma once

#include <optional>

#include "admin/registry_key.h"
#include "platform/platform.h"

class krelIniPort;
class krelMonRegistryAgent;
class krelPortTable;

// Called for each subkey of a key.
class krelMonRegistryAgentSubkeyIterationCallBack {
public:
    // False ends the iteration.
    virtual bool onSubkey(const krelMonRegistryKey& parentKey, LPCWSTR subkeyName) = 0;

protected:
    ~krelMonRegistryAgentSubkeyIterationCallBack() = default;
};

// The persistent settings, reached through the callbacks that the spooler handed the monitor. Made on the
// spot by each operation that needs it and private to its thread; it holds no key open between calls. But
// for the load at start-up, callers hold the monitor's `section` and run under the spooler's identity.
//
// Below the monitor's root lies the key "Ports" with the log settings, and in it one key per port, named
// after the port, with "Print Server", "Port Number" and perhaps the two keep-alive values.
class krelMonRegistryAgent {
public:
    explicit krelMonRegistryAgent(krelPortTable& owner);
    krelMonRegistryAgent(const krelMonRegistryAgent&) = delete;
    krelMonRegistryAgent& operator=(const krelMonRegistryAgent&) = delete;

    // Makes the port's key, and "Ports" if need be, and stores server and port number. A key that was
    // made before a failure stays.
    bool addPortToRegistry(const krelIniPort& port);

    // Store one value of a port whose key exists.
    bool setPortStringValue(LPCWSTR portName, LPCWSTR valueName, LPCWSTR value);
    bool setPortDwordValue(LPCWSTR portName, LPCWSTR valueName, DWORD value);

    // A key that can't be deleted stays, and its port returns at the next start.
    void deletePortFromRegistry(LPCWSTR portName);

    // Makes a port of each entry. Malformed entries are passed over, so the result is always 0.
    LONG loadPortsFromRegistry();

    // Calls back with every subkey, in the spooler's order. A failure looks like the end.
    void iterateSubkeys(const krelMonRegistryKey& key, krelMonRegistryAgentSubkeyIterationCallBack& callback);

    // The key "Ports", made if it is missing. Not open on failure, like the keys below.
    krelMonRegistryKey CreatePortsKey() { return CreateKey(root, TEXT("Ports")); }
    krelMonRegistryKey OpenKey(const krelMonRegistryKey& parent, LPCWSTR name);

    // Reads a value of any type into `data` of `size` bytes; gives its size there. False when it is
    // missing or too long.
    bool QueryValue(const krelMonRegistryKey& key, LPCWSTR name, void* data, DWORD* size);
    std::optional<DWORD> QueryDword(const krelMonRegistryKey& key, LPCWSTR name);

private:
    krelMonRegistryKey OpenPortsKey() { return OpenKey(root, TEXT("Ports")); }
    krelMonRegistryKey OpenPortKey(LPCWSTR portName);
    krelMonRegistryKey CreateKey(const krelMonRegistryKey& parent, LPCWSTR name);
    bool SetString(const krelMonRegistryKey& key, LPCWSTR name, LPCWSTR value);
    bool SetDword(const krelMonRegistryKey& key, LPCWSTR name, DWORD value);

    const krelMonRegistryKey root;  // the spooler's: never closed here
    krelPortTable& monitor;
    const HANDLE& spoolerHandle;
    const MONITORREG callbacks;
};
