#include "admin/registry_key.h"

void krelMonRegistryKey::Release()
{
    try {
        if (closeKey != nullptr && key != nullptr)
            closeKey(key, spooler);
    } catch (...) {
        // The key has served its purpose, and this runs while another exception passes, too.
    }
    key = nullptr;
    spooler = nullptr;
    closeKey = nullptr;
}
