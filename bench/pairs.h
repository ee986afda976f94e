#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

// A row of the report: something of ours, by turns with what it is measured against.
struct Row {
    std::string what;
    std::string against;
    enum Kind { RateAtLeast, CostAtMost } kind;
    double wanted;  // 0: only reported
    int pairs;
};

class Pairs {
public:
    Pairs(benchmark::State& running, const Row& shown) : state(running), row(shown) {}

    // Measures A B A B ...; both give seconds for the same amount of work, and each pair a ratio.
    template <class Measured, class Reference>
    void Run(Measured measured, Reference reference)
    {
        std::vector<double> ratios;
        for ([[maybe_unused]] auto unused : state) {
            const double ours = measured();
            const double other = reference();
            ratios.push_back(row.kind == Row::RateAtLeast ? other / ours : ours / other);
            state.SetIterationTime(ours);
        }
        std::ranges::sort(ratios);
        state.counters["low"] = ratios[(ratios.size() - 1) / 4];
        state.counters["ratio"] = ratios[(ratios.size() - 1) / 2];
        state.counters["high"] = ratios[(ratios.size() - 1) * 3 / 4];
        state.counters["wanted"] = row.wanted;
        state.counters["at_least"] = row.kind == Row::RateAtLeast;
        state.SetLabel(row.against);
    }
    // A figure beside the ratio.
    void Note(const std::string& name, double value) { state.counters["note:" + name] = value; }

private:
    benchmark::State& state;
    const Row row;
};

// Registers a row; `measure` prepares and calls Run once. Gives true, for a static initialiser.
inline bool AddRow(const Row& row, const std::function<void(Pairs&)>& measure)
{
    const auto run = [row, measure](benchmark::State& state) {
        Pairs pairs(state, row);
        measure(pairs);
    };
    benchmark::RegisterBenchmark(row.what.c_str(), run)->Iterations(row.pairs)->UseManualTime();
    return true;
}

using BenchClock = std::chrono::steady_clock;

inline double SecondsSince(BenchClock::time_point start)
{
    return std::chrono::duration<double>(BenchClock::now() - start).count();
}

template <class Work>
double Timed(int times, Work work)
{
    const auto start = BenchClock::now();
    for (int i = 0; i < times; ++i)
        work();
    return SecondsSince(start);
}

// Seconds from the first start to the last end of `work(number)` on `count` threads, let go together.
template <class Work>
double AtOnce(int count, Work work)
{
    std::latch ready(count);
    std::vector<BenchClock::time_point> starts(static_cast<std::size_t>(count));
    auto ends = starts;
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < count; ++number)
            threads.emplace_back([&, number] {
                ready.arrive_and_wait();
                starts[static_cast<std::size_t>(number)] = BenchClock::now();
                work(number);
                ends[static_cast<std::size_t>(number)] = BenchClock::now();
            });
    }
    return std::chrono::duration<double>(std::ranges::max(ends) - std::ranges::min(starts)).count();
}
