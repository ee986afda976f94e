#include "spooler/handles.h"

namespace spooler {

HandleTable& HandleTable::Instance()
{
    // Never destroyed: threads of a process that ends without ShutdownSpooler may still be inside.
    static HandleTable* const table = new HandleTable;
    return *table;
}

HANDLE HandleTable::Add(std::shared_ptr<HandleObject> object)
{
    const std::lock_guard<std::mutex> guard(lock);
    last += 4;
    objects.emplace(last, std::move(object));
    return reinterpret_cast<HANDLE>(last);
}

std::shared_ptr<HandleObject> HandleTable::Find(HANDLE handle)
{
    const std::lock_guard<std::mutex> guard(lock);
    const auto found = objects.find(reinterpret_cast<std::uintptr_t>(handle));
    return found == objects.end() ? nullptr : found->second;
}

std::shared_ptr<HandleObject> HandleTable::Take(HANDLE handle)
{
    const std::lock_guard<std::mutex> guard(lock);
    const auto found = objects.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == objects.end())
        return nullptr;
    std::shared_ptr<HandleObject> object = std::move(found->second);
    objects.erase(found);
    return object;
}

}  // namespace spooler
