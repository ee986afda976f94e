#include "spooler/instance.h"

#include <charconv>
#include <filesystem>
#include <mutex>

#include "spooler/document_file.h"
#include "spooler/handles.h"
#include "spooler/printer_handle.h"
#include "spooler/spooler_error.h"

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

// The number in a document's file name, 0 for a file of another name.
DWORD JobOfDocument(const std::filesystem::path& file)
{
    const std::string stem = file.stem().string();
    DWORD id = 0;
    const auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), id);
    const bool whole = error == std::errc() && end == stem.data() + stem.size();
    return whole && file.extension() == ".spl" ? id : 0;
}

}  // namespace

Instance::Instance()
    : database(std::make_shared<Database>(folder.DatabasePath(), !folder.HasDocuments())),
      registry(std::make_shared<Registry>(database)),
      monitors(std::make_shared<MonitorHost>(database, registry)),
      printers(std::make_shared<Printers>(database)),
      jobs(std::make_shared<JobStore>(database)),
      runners(std::make_shared<Runners>(folder, jobs, monitors))
{
    CleanUp();
}

void Instance::CleanUp()
{
    const auto isAbandoned = [this](DWORD id) { return IsAbandoned(folder.DocumentPath(id)); };
    const auto removeStray = [this](const std::function<bool(DWORD)>& isNeeded) {
        std::error_code unreadable;
        for (const auto& entry : std::filesystem::directory_iterator(folder.DocumentFolder(), unreadable)) {
            const DWORD id = JobOfDocument(entry.path());
            if (id != 0 && !isNeeded(id))
                RemoveDocument(folder.DocumentPath(id));
        }
    };
    jobs->CleanUp(isAbandoned, removeStray);
}

void Instance::RequireAdministrator() const
{
    if (!folder.MayAdminister())
        Throw(ERROR_ACCESS_DENIED, "Only the owner of " + folder.Path() + " may change monitors and ports.");
}

std::shared_ptr<Instance> Instance::Get()
{
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> guard(current.lock);
    if (current.instance == nullptr)
        current.instance = std::make_shared<Instance>();
    return current.instance;
}

std::shared_ptr<Instance> Instance::Opened()
{
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> guard(current.lock);
    return current.instance;
}

bool Instance::Shutdown(DWORD waitMs)
{
    const std::shared_ptr<Instance> stopped = Opened();
    if (stopped == nullptr)
        return true;
    if (!stopped->runners->Stop(waitMs))
        return false;
    {
        Current& current = TheCurrent();
        const std::lock_guard<std::mutex> guard(current.lock);
        if (current.instance == stopped)
            current.instance = nullptr;
    }
    HandleTable::Instance().CloseIf([](HANDLE, const HandleObject& object) {
        return dynamic_cast<const XcvSession*>(&object) != nullptr ||
               dynamic_cast<const PrinterHandle*>(&object) != nullptr;
    });
    stopped->monitors->UnloadAll();
    return true;
}

}  // namespace spooler
