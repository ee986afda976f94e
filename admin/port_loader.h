#pragma once

#include "admin/registry_agent.h"

// Makes a port of each key in "Ports", when the monitor starts. A malformed entry is passed over without a
// word and left as it is: one bad entry never costs the others.
class loadPortFromRegistryCallback final : public krelMonRegistryAgentSubkeyIterationCallBack {
public:
    loadPortFromRegistryCallback(krelMonRegistryAgent& registryAgent, krelPortTable& owner)
        : agent(registryAgent), monitor(owner)
    {
    }

    bool onSubkey(const krelMonRegistryKey& parentKey, LPCWSTR subkeyName) override;
    LONG Status() const { return status; }

private:
    krelIniPort* MakePort(const krelMonRegistryKey& portKey, LPCWSTR portName);
    void ReadKeepAlive(const krelMonRegistryKey& portKey, krelIniPort& port);

    krelMonRegistryAgent& agent;
    krelPortTable& monitor;
    const LONG status = 0;
};
