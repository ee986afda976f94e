#include "platform/simulated/scheduler.h"

#include <algorithm>
#include <utility>

#include "platform/simulated/random.h"

namespace simulated {

namespace {

constexpr std::uint64_t kMostPoints = 5'000'000;  // a run that comes so far goes round in circles

}  // namespace

Scheduler* Scheduler::current = nullptr;

Scheduler::Scheduler(Order& given) : order(given) {}

Scheduler::~Scheduler() = default;

std::string Scheduler::Run(const std::function<void()>& first)
{
    current = this;
    Thread& thread = Start("main", Thread::Kind::Inside, first);
    running = &thread;
    Fiber::Switch(outside, *thread.fiber);
    current = nullptr;
    return failure;
}

Thread& Scheduler::Start(const std::string& name, Thread::Kind kind, std::function<void()> body)
{
    Reap();
    const auto number = static_cast<unsigned>(threads.size());
    Thread& thread = *threads.emplace_back(std::make_unique<Thread>(number, name, kind, std::move(body)));
    thread.fiber = std::make_unique<Fiber>(&Scheduler::Enter, &thread);
    living.push_back(&thread);
    if (kind == Thread::Kind::Inside)
        order.Began(thread);
    return thread;
}

void Scheduler::Enter(void* thread)
{
    static_cast<Thread*>(thread)->body();
    Current().End();
}

// The stacks of threads that have ended, but for the one that this may run on.
void Scheduler::Reap()
{
    std::erase_if(living, [](Thread* thread) { return thread->state == Thread::State::Ended; });
    if (threads.size() % 64 != 0)
        return;
    for (const auto& thread : threads) {
        if (thread->state == Thread::State::Ended)
            thread->fiber.reset();
    }
}

void Scheduler::Point(const char* call)
{
    running->call = call;
    if (running->kind == Thread::Kind::Outside)
        return;
    ++running->points;
    CountPoint();
    if (order.Interrupts(*running, false))
        Yield(false);
}

void Scheduler::CountPoint()
{
    if (++points > kMostPoints)
        Fail("the threads run on and on");
}

bool Scheduler::Wait(const void* place, Micros until)
{
    if (until <= now)
        return false;
    CountPoint();
    Thread& self = *running;
    self.state = Thread::State::Waiting;
    self.waitsFor = place;
    self.isTimedOut = false;
    ++self.wait;
    if (until != kForever)
        AddTimer({until, 0, &self, self.wait, nullptr});
    Yield(true);
    return !self.isTimedOut;
}

void Scheduler::Wake(const void* place)
{
    for (Thread* thread : living) {
        if (thread->state == Thread::State::Waiting && thread->waitsFor == place)
            thread->state = Thread::State::Ready;
    }
}

void Scheduler::At(Micros when, std::function<void()> action)
{
    AddTimer({std::max(when, now), 0, nullptr, 0, std::move(action)});
}

bool Scheduler::IsLater(const Timer& left, const Timer& right)
{
    return left.when != right.when ? left.when > right.when : left.number > right.number;
}

void Scheduler::AddTimer(Timer timer)
{
    timer.number = ++timersMade;
    timers.push_back(std::move(timer));
    std::push_heap(timers.begin(), timers.end(), &IsLater);
}

void Scheduler::Stall(Thread& thread, Micros length)
{
    thread.state = Thread::State::Waiting;
    thread.waitsFor = nullptr;
    ++thread.wait;
    stalled += length;
    AddTimer({now + length, 0, &thread, thread.wait, nullptr});
}

Thread* Scheduler::NextOutside()
{
    for (Thread* thread : living) {
        if (thread->kind == Thread::Kind::Outside && thread->state == Thread::State::Ready)
            return thread;
    }
    return nullptr;
}

Thread* Scheduler::NextInside(Thread& at, bool blocks)
{
    candidates.clear();
    for (Thread* thread : living) {
        if (thread->kind == Thread::Kind::Inside && thread->state == Thread::State::Ready)
            candidates.push_back(thread);
    }
    const auto first = std::find_if(candidates.begin(), candidates.end(),
                                    [&](const Thread* thread) { return thread->number >= at.number; });
    std::rotate(candidates.begin(), first, candidates.end());
    if (candidates.empty())
        return nullptr;
    if (blocks)
        ++at.points;
    // Who blocks asks too: which of several goes on is for the order to say.
    if (blocks && (candidates.size() == 1 || !order.Interrupts(at, true)))
        return candidates.front();
    const Decision decision = order.Decide(at, blocks, candidates);
    Thread* const next = candidates[decision.next];
    if (decision.stall == 0 || blocks)
        return next;
    Stall(at, decision.stall);
    return next != &at ? next : candidates.size() > 1 ? candidates[1] : nullptr;
}

void Scheduler::Yield(bool blocks)
{
    Thread& self = *running;
    Thread* next = blocks ? nullptr : NextInside(self, false);
    while (next == nullptr) {
        next = NextOutside();
        if (next == nullptr)
            next = NextInside(self, true);
        if (next == nullptr)
            Advance();
    }
    if (next != &self)
        SwitchTo(*next);
}

void Scheduler::SwitchTo(Thread& next)
{
    Thread& self = *running;
    running = &next;
    if (next.kind == Thread::Kind::Inside)
        orderSeen = Random::Mix(orderSeen ^ (std::uint64_t{next.number} << 32 | next.points)) + 1;
    Fiber::Switch(*self.fiber, *next.fiber);
}

// Nobody can run: what happens next, and at the same moment.
void Scheduler::Advance()
{
    if (timers.empty())
        Fail("everybody waits, and nothing will happen any more (a deadlock)");
    now = timers.front().when;
    CheckBounds();
    while (!timers.empty() && timers.front().when == now) {
        std::pop_heap(timers.begin(), timers.end(), &IsLater);
        const Timer timer = std::move(timers.back());
        timers.pop_back();
        if (timer.action) {
            timer.action();
        } else if (timer.thread->wait == timer.wait && timer.thread->state == Thread::State::Waiting) {
            timer.thread->isTimedOut = true;
            timer.thread->state = Thread::State::Ready;
        }
    }
}

void Scheduler::CheckBounds()
{
    for (const Thread* thread : living) {
        if (thread->state != Thread::State::Ended && thread->bound != kForever &&
            now > thread->bound + stalled)
            Fail("a call takes longer than its bound (" + thread->name + ")");
    }
}

void Scheduler::End()
{
    Thread& self = *running;
    self.state = Thread::State::Ended;
    std::erase(living, &self);
    if (living.empty())
        Fiber::SwitchForGood(*self.fiber, outside);
    Yield(true);
    Fail("a thread that has ended goes on");
}

void Scheduler::Fail(const std::string& reason)
{
    failure = reason + "\n" + ThreadsAsText();
    Fiber::SwitchForGood(*running->fiber, outside);
}

std::string Scheduler::ThreadsAsText() const
{
    std::string text;
    for (const Thread* thread : living) {
        if (thread->kind == Thread::Kind::Outside)
            continue;
        text += "  thread " + std::to_string(thread->number) + " (" + thread->name + ") " +
                (thread == running                         ? "runs, in "
                 : thread->state == Thread::State::Waiting ? "waits in "
                                                           : "could go on, in ") +
                thread->call + "\n";
    }
    return text;
}

}  // namespace simulated
