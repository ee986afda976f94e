#pragma once

#include <memory>

#include "platform/platform.h"
#include "spooler/registry.h"

namespace spooler {

// The table that every monitor gets in its MONITORINIT. The functions answer as the platform's:
// ERROR_INVALID_HANDLE for a key or spooler handle that isn't open, ERROR_FILE_NOT_FOUND,
// ERROR_MORE_DATA for a buffer that is too small (the size is told, the buffer untouched),
// ERROR_NO_MORE_ITEMS behind the last name. An empty name opens the parent itself. Any thread.
MONITORREG* RegistryCallbacks();

// One monitor's way to its settings: the spooler handle and the root key of its MONITORINIT. The end
// of the scope closes both, and every key that the monitor left open.
class RegistryAccess {
public:
    RegistryAccess(std::shared_ptr<Registry> registry, WideStringView monitorName);
    ~RegistryAccess();
    RegistryAccess(const RegistryAccess&) = delete;
    RegistryAccess& operator=(const RegistryAccess&) = delete;

    HANDLE Spooler() const { return spooler; }
    HKEYMONITOR Root() const { return root; }

private:
    HANDLE spooler;
    HKEYMONITOR root;
};

}  // namespace spooler
