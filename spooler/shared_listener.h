#pragma once

#include <mutex>

#include "spooler/printing.h"

namespace spooler {

// The caller's listener, told by one thread at a time. `change` works on the progress that it is told next.
class SharedListener {
public:
    SharedListener(Listener& told, std::uint64_t total) : listener(told) { progress.total = total; }

    template <typename Change>
    void TellProgress(Change change)
    {
        const std::lock_guard<std::mutex> guard(lock);
        change(progress);
        listener.OnProgress(progress);
    }
    template <typename Action>
    void Tell(Action action)
    {
        const std::lock_guard<std::mutex> guard(lock);
        action(listener);
    }

private:
    std::mutex lock;
    Listener& listener;
    Progress progress;
};

}  // namespace spooler
