#pragma once

#include <functional>
#include <string>
#include <vector>

namespace farlink {

// How the steps of a check went: told as they end, and kept for the report that can be sent away. One thread.
class CheckReport {
public:
    // With `quiet` nothing is told; the report has it all the same.
    explicit CheckReport(bool quiet) : isQuiet(quiet) {}

    // Runs a step. It passes unless it throws; what is thrown is why it failed. Gives whether it passed.
    bool Step(const std::string& name, const std::function<void()>& step);
    void Skip(const std::string& name, const std::string& reason);

    struct Result {
        std::string outcome;  // "ok", "FAILED", "skipped"
        std::string name;
        double seconds;
        std::string reason;
    };
    const std::vector<Result>& Results() const { return results; }
    int Count(const std::string& outcome) const;

    // The results, behind them what the system says of itself, the spooler's newest events and the monitor's
    // log lines with that tag. Throws Failure when the file can't be written.
    void Write(const std::string& path, const std::string& logPath, const std::string& logTag) const;

private:
    void Add(Result result);

    const bool isQuiet;
    std::vector<Result> results;
};

}  // namespace farlink
