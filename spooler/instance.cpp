#include "spooler/instance.h"

#include <mutex>
#include <utility>

#include "spooler/handles.h"

namespace spooler {

namespace {

struct Current {
    std::mutex lock;
    std::shared_ptr<Instance> instance;
};

Current& TheCurrent()
{
    // Never destroyed: the process may end without a shutdown, with threads still inside.
    static Current* const current = new Current;
    return *current;
}

}  // namespace

Instance::Instance()
    : database(std::make_shared<Database>(folder.DatabasePath())),
      registry(std::make_shared<Registry>(database)),
      monitors(std::make_shared<MonitorHost>(database, registry))
{
}

std::shared_ptr<Instance> Instance::Get()
{
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> guard(current.lock);
    if (current.instance == nullptr)
        current.instance = std::make_shared<Instance>();
    return current.instance;
}

void Instance::Shutdown()
{
    std::shared_ptr<Instance> stopped;
    {
        Current& current = TheCurrent();
        const std::lock_guard<std::mutex> guard(current.lock);
        stopped = std::exchange(current.instance, nullptr);
    }
    if (stopped == nullptr)
        return;
    HandleTable::Instance().CloseIf([](HANDLE, const HandleObject& object) {
        return dynamic_cast<const XcvSession*>(&object) != nullptr;
    });
    stopped->monitors->UnloadAll();
}

}  // namespace spooler
