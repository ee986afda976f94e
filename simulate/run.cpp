#include "simulate/run.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "monitor/library_entry.h"
#include "simulate/orders.h"
#include "simulate/world.h"

namespace {

constexpr unsigned kLongestRun = 60;  // seconds of real time
constexpr std::size_t kMostDecisions = 1 << 20;
constexpr std::size_t kMostText = std::size_t{16} << 20;

// What a child process leaves behind.
struct Legacy {
    bool isOver;
    std::size_t interruptionCount;
    std::size_t choiceCount;
    Interruption interruptions[kMostDecisions];
    unsigned choices[kMostDecisions];
    std::size_t failureSize;
    std::size_t storySize;
    char text[kMostText];
};

Legacy& SharedLegacy()
{
    static Legacy& shared = *static_cast<Legacy*>(mmap(nullptr, sizeof(Legacy), PROT_READ | PROT_WRITE,
                                                       MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    return shared;
}

void Leave(Legacy& legacy, const std::string& failure, const std::string& story)
{
    legacy.failureSize = failure.copy(legacy.text, kMostText);
    legacy.storySize = story.copy(legacy.text + legacy.failureSize, kMostText - legacy.failureSize);
    legacy.isOver = true;
}

}  // namespace

Recipe RecipeOf(std::uint64_t seed)
{
    return {.seed = seed, .orders = seed % 3 == 0 ? Orders::FewInterruptions : Orders::Drawn};
}

Outcome RunInOrder(const Scene& scene, Plan& plan, std::uint64_t seed, RecordedOrder& order,
                   std::string* story)
{
    simulated::Scheduler scheduler(order);
    World world(plan, seed, story);
    Outcome outcome;
    outcome.failure = scheduler.Run([&] { world.Play(scene.play); });
    if (!outcome.failure.empty())
        (void)DllEntryPoint(nullptr, DLL_PROCESS_DETACH, nullptr);
    outcome.interruptions = order.Decisions();
    outcome.choices = plan.Made();
    outcome.order = scheduler.OrderSeen();
    outcome.digest = world.Digest();
    outcome.points = scheduler.Points();
    outcome.length = scheduler.Now();
    return outcome;
}

Outcome RunOnce(const Scene& scene, const Recipe& recipe, std::string* story)
{
    Plan plan(recipe);
    const std::unique_ptr<RecordedOrder> order = MakeOrder(recipe);
    return RunInOrder(scene, plan, recipe.seed, *order, story);
}

bool IsAsRecorded(const Scene& scene, const Outcome& outcome, std::uint64_t seed)
{
    const Recipe recipe{.seed = seed,
                        .orders = Orders::Given,
                        .interruptions = outcome.interruptions,
                        .choices = outcome.choices};
    const Outcome again = RunOnce(scene, recipe, nullptr);
    return again.order == outcome.order && again.digest == outcome.digest && again.points == outcome.points;
}

namespace {

void RunAndLeave(const Scene& scene, const Recipe& recipe, bool tells, Legacy& legacy)
{
    Plan plan(recipe);
    const std::unique_ptr<RecordedOrder> order = MakeOrder(recipe);
    plan.onChoice = [&](unsigned choice) {
        if (legacy.choiceCount < kMostDecisions)
            legacy.choices[legacy.choiceCount++] = choice;
    };
    order->onDecision = [&](const Interruption& decision) {
        if (legacy.interruptionCount < kMostDecisions)
            legacy.interruptions[legacy.interruptionCount++] = decision;
    };
    std::string story;
    const Outcome outcome = RunInOrder(scene, plan, recipe.seed, *order, tells ? &story : nullptr);
    Leave(legacy, outcome.failure, story);
}

}  // namespace

Outcome RunApart(const Scene& scene, const Recipe& recipe, std::string* story)
{
    Legacy& legacy = SharedLegacy();
    legacy.isOver = false;
    legacy.interruptionCount = legacy.choiceCount = 0;
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLongestRun);
        RunAndLeave(scene, recipe, story != nullptr, legacy);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    Outcome outcome;
    outcome.interruptions.assign(legacy.interruptions, legacy.interruptions + legacy.interruptionCount);
    outcome.choices.assign(legacy.choices, legacy.choices + legacy.choiceCount);
    if (!legacy.isOver) {
        outcome.failure = std::string("the process dies: ") + strsignal(WTERMSIG(status));
        return outcome;
    }
    outcome.failure.assign(legacy.text, legacy.failureSize);
    if (story != nullptr)
        story->assign(legacy.text + legacy.failureSize, legacy.storySize);
    return outcome;
}
