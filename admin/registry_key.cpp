#include "admin/registry_key.h"

void krelMonRegistryKey::Release()
{
    if (closeKey != nullptr && key != nullptr)
        closeKey(key, spooler);
    key = nullptr;
    spooler = nullptr;
    closeKey = nullptr;
}
