#include "printserver/events.h"

#include <algorithm>

namespace printserver {

const char* NameOf(Channel channel)
{
    return channel == Channel::Data ? "data" : "command";
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a copy per event is nothing
void EventLog::Raise(Event event)
{
    const std::scoped_lock inOrder(order);
    event.time = std::chrono::system_clock::now();
    if (remember) {
        const std::scoped_lock scope(lock);
        events.push_back(event);
    }
    happened.notify_all();
    if (observer)
        observer(event);
}

std::vector<Event> EventLog::Events() const
{
    const std::scoped_lock scope(lock);
    return events;
}

int EventLog::Count(EventKind kind) const
{
    const std::scoped_lock scope(lock);
    return static_cast<int>(
        std::count_if(events.begin(), events.end(), [kind](const Event& e) { return e.kind == kind; }));
}

bool EventLog::WaitFor(const std::function<bool()>& predicate, Milliseconds limit) const
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        std::unique_lock scope(lock);
        // Not everything that a test waits for raises an event, hence the short slices.
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        happened.wait_for(scope, Milliseconds(5));
    }
    return true;
}

}  // namespace printserver
