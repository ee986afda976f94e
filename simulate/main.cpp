// Plays scenes in the simulated world, run after run, until one fails or the time is up.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <unordered_set>

#include "simulate/coverage.h"
#include "simulate/exhaustive.h"
#include "simulate/run.h"

namespace {

constexpr std::uint64_t kRunsPerRepetition = 64;

using Clock = std::chrono::steady_clock;

struct Options {
    std::string scene;
    std::uint64_t seed = 0;
    std::uint64_t runs = 0;
    double minutes = 0;
    std::string log;
    bool goesOn = false;
    bool triesAll = false;
};

// Where the searching process is, for the one that waits for it.
struct Progress {
    std::uint64_t seed;
    std::size_t scene;
};

std::vector<const Scene*> Chosen(const std::string& name)
{
    std::vector<const Scene*> chosen;
    for (const Scene& scene : Scenes()) {
        if (name.empty() || name == scene.name)
            chosen.push_back(&scene);
    }
    return chosen;
}

// In a process of its own: it ends with 1 at a failure, or dies of it.
int Search(const Options& options, const std::vector<const Scene*>& scenes, Progress& progress)
{
    const auto begun = Clock::now();
    const auto seconds = [begun] { return std::chrono::duration<double>(Clock::now() - begun).count(); };
    std::unordered_set<std::uint64_t> orders;
    std::uint64_t runs = 0;
    std::uint64_t points = 0;
    double simulatedHours = 0;
    bool failed = false;
    std::map<std::string, std::string> kinds;  // of failures, and where each was first
    const auto isOver = [&] {
        return (failed && !options.goesOn) || (options.runs != 0 && runs >= options.runs) ||
               (options.minutes != 0 && seconds() >= options.minutes * 60);
    };
    for (std::uint64_t seed = options.seed; !isOver(); ++seed) {
        for (std::size_t i = 0; i < scenes.size() && !isOver(); ++i) {
            progress = {seed, i};
            Outcome outcome = RunOnce(*scenes[i], RecipeOf(seed), nullptr);
            if (runs % kRunsPerRepetition == 0 && !IsAsRecorded(*scenes[i], outcome, seed))
                outcome.failure = "a run is not what its record says";
            ++runs;
            points += outcome.points;
            simulatedHours += static_cast<double>(outcome.length) / 3.6e9;
            orders.insert(outcome.order);
            if (outcome.failure.empty())
                continue;
            failed = true;
            kinds.emplace(scenes[i]->name + (": " + outcome.Kind()),
                          "seed " + std::to_string(seed) + ", run " + std::to_string(runs));
            if (!options.goesOn)
                std::printf("%s\n", outcome.failure.c_str());
        }
    }
    for (const auto& [kind, first] : kinds) {
        if (options.goesOn)
            std::printf("%s (%s)\n", kind.c_str(), first.c_str());
    }
    std::printf(
        "%llu runs in %.1f s (%.0f a minute), %.1f simulated hours; %zu orders of threads, %.0f points "
        "a run, %zu places of the monitor's code reached\n",
        static_cast<unsigned long long>(runs), seconds(), static_cast<double>(runs) * 60 / seconds(),
        simulatedHours, orders.size(), static_cast<double>(points) / static_cast<double>(runs),
        PlacesReached());
    std::fflush(stdout);
    return failed ? 1 : 0;
}

// In this process: a scene that kills it is found by the drawn orders too.
int SearchAll(const Options& options, const Scene& scene)
{
    const auto begun = Clock::now();
    std::uint64_t runs = 0;
    std::unordered_set<std::uint64_t> orders;
    std::string failure;
    const bool isWhole = TryAllOrders(scene, [&](const Recipe& recipe, const Outcome& outcome) {
        ++runs;
        orders.insert(outcome.order);
        failure = outcome.failure;
        if (!failure.empty())
            (void)RunApart(scene, recipe, &failure);
        return outcome.failure.empty() &&
               (options.minutes == 0 ||
                Clock::now() - begun < std::chrono::duration<double>(options.minutes * 60));
    });
    std::printf("%s%s: %llu runs, %zu orders of threads, %s\n", failure.c_str(), scene.name,
                static_cast<unsigned long long>(runs), orders.size(),
                !failure.empty() ? "a failure"
                : isWhole        ? "all with two interruptions"
                                 : "the time is up");
    return failure.empty() ? 0 : 1;
}

void TellFailure(const Scene& scene, std::uint64_t seed)
{
    std::printf("\nThe scene '%s' fails with seed %llu. Looking for a shorter run.\n", scene.name,
                static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    const Recipe drawn = RecipeOf(seed);
    Outcome failed = RunApart(scene, drawn, nullptr);
    const Recipe shortest = Shrink(scene, failed, seed);
    std::string story;
    const Outcome outcome = RunApart(scene, shortest, &story);
    std::printf("%s\n%s\n", story.c_str(), outcome.failure.c_str());
    for (const Interruption& one : shortest.interruptions)
        std::printf("  at its point %llu thread %u %s\n", static_cast<unsigned long long>(one.point),
                    one.thread,
                    one.stall == 0 ? ("lets thread " + std::to_string(one.next) + " go on").c_str()
                                   : ("is held up for " + std::to_string(one.stall / 1000) + " ms").c_str());
    std::printf("\nAgain: ./run simulate %s --seed %llu --runs 1\n", scene.name,
                static_cast<unsigned long long>(seed));
}

int WriteLog(const Options& options, const Scene& scene)
{
    std::string story;
    const Outcome outcome = RunApart(scene, RecipeOf(options.seed), &story);
    std::FILE* const file = std::fopen(options.log.c_str(), "w");
    if (file == nullptr)
        return 2;
    std::fputs((story + outcome.failure).c_str(), file);
    return std::fclose(file) == 0 ? 0 : 2;
}

int SearchAndTell(const Options& options, const std::vector<const Scene*>& scenes)
{
    Progress& progress = *static_cast<Progress*>(
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
        _exit(Search(options, scenes, progress));
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && (WEXITSTATUS(status) == 0 || options.goesOn))
        return WEXITSTATUS(status);
    TellFailure(*scenes[progress.scene], progress.seed);
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Runs the monitor in a simulated world: its threads, its time and its network are drawn from "
        "a seed, and the same seed gives the same run.");
    Options options;
    options.seed = std::random_device()();
    std::string scenes;
    for (const Scene& scene : Scenes())
        scenes += std::string("\n  ") + scene.name + ": " + scene.told;
    app.add_option("scene", options.scene, "One scene; without it all, in turn:" + scenes);
    app.add_option("--seed", options.seed, "The first run's seed; the next has the next");
    app.add_option("--runs", options.runs, "How many runs");
    app.add_option("--minutes", options.minutes, "How long (1, if no runs are given)");
    app.add_flag("--all", options.triesAll,
                 "In the scene's plain world, try every order with up to two interruptions");
    app.add_flag("--go-on", options.goesOn,
                 "Don't end at a failure: list each kind with the run that met it first");
    app.add_option("--log", options.log, "Write the story of the first run to this file, and end");
    CLI11_PARSE(app, argc, argv);
    if (options.runs == 0 && options.minutes == 0 && !options.triesAll)
        options.minutes = 1;
    const std::vector<const Scene*> chosen = Chosen(options.scene);
    if (chosen.empty()) {
        std::fprintf(stderr, "There is no scene '%s'. There are:%s\n", options.scene.c_str(), scenes.c_str());
        return 2;
    }
    if (options.triesAll) {
        int result = 0;
        for (const Scene* scene : chosen)
            result = std::max(result, SearchAll(options, *scene));
        return result;
    }
    return options.log.empty() ? SearchAndTell(options, chosen) : WriteLog(options, *chosen.front());
}
