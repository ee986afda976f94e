#include "simulate/orders.h"

#include <algorithm>
#include <map>
#include <set>

using simulated::Decision;
using simulated::Micros;
using simulated::Random;
using simulated::Thread;
using Candidates = std::span<Thread* const>;

namespace {

constexpr Micros kMostStalled = 9 * simulated::kSecond;  // in a run: less than what a silent server is given

// Of all lengths alike, from what a busy machine does to what a paused one does.
Micros DrawStall(Random& random, Micros& stalledSoFar)
{
    constexpr Micros kLengths[] = {1, 300, 1000, 20'000, 300'000, 1'100'000, 2'500'000};
    const Micros length = kLengths[random.Below(std::size(kLengths))];
    if (stalledSoFar + length > kMostStalled)
        return 0;
    stalledSoFar += length;
    return length;
}

// At moments that come by chance, any of the others goes on, or the thread is held up.
class DrawnOrder : public RecordedOrder {
public:
    explicit DrawnOrder(std::uint64_t seed) : random(seed)
    {
        constexpr std::uint64_t kGaps[] = {10, 30, 100, 300, 1000, 3000};
        gap = kGaps[random.Below(std::size(kGaps))];
    }
    void Began(Thread&) override {}
    bool Interrupts(Thread&, bool blocks) override
    {
        if (blocks)
            return random.OneIn(2);
        if (--left > 0)
            return false;
        left = 1 + random.Below(2 * gap);
        return true;
    }

protected:
    Decision Draw(Thread&, bool blocks, Candidates candidates) override
    {
        const bool stalls = !blocks && (candidates.size() == 1 || random.OneIn(2));
        return {random.Below(candidates.size()), stalls ? DrawStall(random, stalled) : 0};
    }

private:
    Random random;
    std::uint64_t gap;
    std::uint64_t left = 1;
    Micros stalled = 0;
};

// Each thread has a rank, and the highest that can run does. At a few moments the one that runs falls below
// all others, or is held up: a fault that takes n such moments is met with a chance of at least one in
// (threads * points^(n-1)) runs.
class FewInterruptions : public RecordedOrder {
public:
    explicit FewInterruptions(std::uint64_t seed) : random(seed)
    {
        constexpr std::uint64_t kLengths[] = {300, 1000, 3000, 10'000};  // of runs, in points
        const std::uint64_t pointsExpected = kLengths[random.Below(std::size(kLengths))];
        for (std::uint64_t i = random.Below(4); i > 0; --i)
            moments.insert(random.Below(pointsExpected));
    }
    void Began(Thread& thread) override { ranks[thread.number] = (1 << 20) + random.Below(1 << 20); }
    bool Interrupts(Thread&, bool blocks) override
    {
        points += blocks ? 0 : 1;
        return true;
    }

protected:
    Decision Draw(Thread& at, bool blocks, Candidates candidates) override
    {
        Micros stall = 0;
        if (!blocks && moments.erase(points) > 0) {
            ranks[at.number] = --lowest;
            stall = random.OneIn(2) ? DrawStall(random, stalled) : 0;
        }
        const auto highest =
            std::max_element(candidates.begin(), candidates.end(),
                             [&](Thread* a, Thread* b) { return ranks[a->number] < ranks[b->number]; });
        return {static_cast<std::size_t>(highest - candidates.begin()), stall};
    }

private:
    Random random;
    std::set<std::uint64_t> moments;
    std::map<unsigned, std::uint64_t> ranks;
    std::uint64_t lowest = 1 << 20;
    std::uint64_t points = 0;
    Micros stalled = 0;
};

class GivenOrder : public RecordedOrder {
public:
    explicit GivenOrder(const std::vector<Interruption>& given)
    {
        for (const Interruption& one : given)
            due[{one.thread, one.point}] = &one;
    }
    void Began(Thread&) override {}
    bool Interrupts(Thread& at, bool) override
    {
        const auto found = due.find({at.number, at.points});
        now = found == due.end() ? nullptr : found->second;
        return now != nullptr;
    }

protected:
    Decision Draw(Thread&, bool, Candidates candidates) override
    {
        const auto found = std::find_if(candidates.begin(), candidates.end(),
                                        [&](Thread* thread) { return thread->number == now->next; });
        const bool isThere = found != candidates.end();
        return {isThere ? static_cast<std::size_t>(found - candidates.begin()) : 0, now->stall};
    }

private:
    std::map<std::pair<unsigned, std::uint64_t>, const Interruption*> due;
    const Interruption* now = nullptr;
};

}  // namespace

Decision RecordedOrder::Decide(Thread& at, bool blocks, Candidates candidates)
{
    const Decision decision = Draw(at, blocks, candidates);
    if (decision.next != 0 || decision.stall != 0) {
        decisions.push_back({at.number, at.points, candidates[decision.next]->number, decision.stall});
        onDecision(decisions.back());
    }
    return decision;
}

std::unique_ptr<RecordedOrder> MakeOrder(const Recipe& recipe)
{
    const std::uint64_t seed = Random::Mix(recipe.seed + 1);
    switch (recipe.orders) {
        case Orders::Drawn:
            return std::make_unique<DrawnOrder>(seed);
        case Orders::FewInterruptions:
            return std::make_unique<FewInterruptions>(seed);
        case Orders::Given:
            break;
    }
    return std::make_unique<GivenOrder>(recipe.interruptions);
}
