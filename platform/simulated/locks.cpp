// Critical sections, and the order in which they are taken. The structure is the one of the layer for Linux;
// here `state` is the lock's kind, `depth` how often its owner has taken it, and the owner a Thread.

#include <new>
#include <string_view>

#include "platform/simulated/lock_order.h"
#include "platform/simulated/scheduler.h"

using simulated::Scheduler;
using simulated::Thread;

namespace {

Thread* Owner(const CRITICAL_SECTION& section)
{
    return static_cast<Thread*>(section.owner.load());
}

void Take(CRITICAL_SECTION* section, Thread& self)
{
    if (section->depth++ > 0)
        return;
    section->owner = &self;
    for (const CRITICAL_SECTION* held : self.held)
        simulated::NoteLockOrder(held->state, section->state);
    self.held.push_back(section);
}

bool IsFree(const CRITICAL_SECTION& section, const Thread& self)
{
    return section.depth == 0 || Owner(section) == &self;
}

// A thread that waits for a lock waits for its owner, who may wait for a lock himself.
void CheckForCircle(const CRITICAL_SECTION* wanted, const Thread& self)
{
    const Thread* owner = Owner(*wanted);
    for (int links = 0; links < 100 && owner->state == Thread::State::Waiting; ++links) {
        if (owner == &self)
            Scheduler::Current().Fail("threads wait for each other's locks (a deadlock)");
        if (std::string_view(owner->call) != "EnterCriticalSection" || owner->waitsFor == nullptr)
            return;
        owner = Owner(*static_cast<const CRITICAL_SECTION*>(owner->waitsFor));
        if (owner == nullptr)
            return;
    }
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    new (section) CRITICAL_SECTION{};
    section->state = simulated::LockKind(__builtin_return_address(0));
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    if (section->depth != 0 && Scheduler::IsRunning())
        Scheduler::Current().Fail("a lock is destroyed while it is held");
}

void EnterCriticalSection(CRITICAL_SECTION* section)
{
    if (!Scheduler::IsRunning())
        return;
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Point("EnterCriticalSection");
    Thread& self = scheduler.Self();
    while (!IsFree(*section, self)) {
        self.waitsFor = section;
        self.state = Thread::State::Waiting;
        CheckForCircle(section, self);
        self.state = Thread::State::Ready;
        (void)scheduler.Wait(section, simulated::kForever);
    }
    Take(section, self);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    if (!Scheduler::IsRunning())
        return TRUE;
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Point("TryEnterCriticalSection");
    if (!IsFree(*section, scheduler.Self()))
        return FALSE;
    Take(section, scheduler.Self());
    return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    if (!Scheduler::IsRunning())
        return;
    Scheduler& scheduler = Scheduler::Current();
    Thread& self = scheduler.Self();
    if (section->depth == 0 || Owner(*section) != &self)
        scheduler.Fail("a lock is left by a thread that doesn't hold it");
    if (--section->depth == 0) {
        section->owner = nullptr;
        std::erase(self.held, section);
        scheduler.Wake(section);
    }
    scheduler.Point("LeaveCriticalSection");
}
