#include "simulate/exhaustive.h"

namespace {

constexpr std::size_t kMostInterruptions = 2;

// Plays the given interruptions, and notes where others could have come behind the last of them.
class SurveyingOrder : public RecordedOrder {
public:
    explicit SurveyingOrder(const std::vector<Interruption>& all) : given(all) {}
    void Began(simulated::Thread&) override {}
    bool Interrupts(simulated::Thread&, bool) override { return true; }

    std::vector<Interruption> others;

protected:
    simulated::Decision Draw(simulated::Thread& at, bool,
                             std::span<simulated::Thread* const> candidates) override
    {
        if (played < given.size()) {
            const Interruption& due = given[played];
            if (due.thread != at.number || due.point != at.points)
                return {};
            ++played;
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                if (candidates[i]->number == due.next)
                    return {i, 0};
            }
            return {};
        }
        for (std::size_t i = 1; i < candidates.size(); ++i)
            others.push_back({at.number, at.points, candidates[i]->number, 0});
        return {};
    }

private:
    const std::vector<Interruption>& given;
    std::size_t played = 0;
};

}  // namespace

bool TryAllOrders(const Scene& scene, const std::function<bool(const Recipe&, const Outcome&)>& judge)
{
    std::vector<std::vector<Interruption>> waiting{{}};
    while (!waiting.empty()) {
        Recipe recipe{.orders = Orders::Given, .interruptions = std::move(waiting.back())};
        waiting.pop_back();
        SurveyingOrder order(recipe.interruptions);
        Plan plan(recipe);
        const Outcome outcome = RunInOrder(scene, plan, recipe.seed, order, nullptr);
        if (!judge(recipe, outcome))
            return false;
        if (recipe.interruptions.size() == kMostInterruptions)
            continue;
        for (const Interruption& other : order.others) {
            waiting.push_back(recipe.interruptions);
            waiting.back().push_back(other);
        }
    }
    return true;
}
