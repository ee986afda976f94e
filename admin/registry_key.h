#pragma once

#include "platform/platform.h"

// One key of the spooler's registry, open as long as this object lives.
class krelMonRegistryKey {
public:
    using CloseKey = decltype(MONITORREG::fpCloseKey);

    krelMonRegistryKey() = default;
    // A null `closeKeyCall` means that the key isn't ours to close.
    krelMonRegistryKey(HKEYMONITOR openKey, HANDLE spoolerHandle, CloseKey closeKeyCall)
        : key(openKey), spooler(spoolerHandle), closeKey(closeKeyCall)
    {
    }
    ~krelMonRegistryKey() { Release(); }
    krelMonRegistryKey(const krelMonRegistryKey&) = delete;
    krelMonRegistryKey& operator=(const krelMonRegistryKey&) = delete;

    HKEYMONITOR Get() const { return key; }
    bool IsOpen() const { return key != nullptr; }

    // Closes the key before the object's end.
    void Release();

private:
    HKEYMONITOR key = nullptr;
    HANDLE spooler = nullptr;
    CloseKey closeKey = nullptr;
};
