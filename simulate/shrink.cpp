// Takes away from a failed run what its failure doesn't need.

#include <algorithm>

#include "simulate/run.h"

namespace {

class Shrinking {
public:
    Shrinking(const Scene& itsScene, const std::string& itsKind, Recipe start)
        : scene(itsScene), kind(itsKind), best(std::move(start))
    {
    }

    // Large parts first, then single ones, until nothing more can go.
    Recipe Run()
    {
        for (bool hasChanged = true; hasChanged && triesLeft > 0;) {
            hasChanged = false;
            for (std::size_t part = best.interruptions.size(); part > 0; part /= 2)
                hasChanged |= DropInterruptions(part);
            for (std::size_t part = best.choices.size(); part > 0; part /= 2)
                hasChanged |= MakeChoicesPlain(part);
            hasChanged |= ShortenStalls();
        }
        return best;
    }

private:
    bool Try(const Recipe& candidate)
    {
        if (triesLeft-- <= 0 || RunApart(scene, candidate, nullptr).Kind() != kind)
            return false;
        best = candidate;
        return true;
    }

    bool DropInterruptions(std::size_t part)
    {
        bool hasChanged = false;
        for (std::size_t from = 0; from < best.interruptions.size();) {
            Recipe candidate = best;
            const auto first = candidate.interruptions.begin() + static_cast<std::ptrdiff_t>(from);
            const std::size_t count = std::min(part, best.interruptions.size() - from);
            candidate.interruptions.erase(first, first + static_cast<std::ptrdiff_t>(count));
            if (Try(candidate))
                hasChanged = true;
            else
                from += part;
        }
        return hasChanged;
    }

    bool MakeChoicesPlain(std::size_t part)
    {
        bool hasChanged = false;
        for (std::size_t from = 0; from < best.choices.size(); from += part) {
            Recipe candidate = best;
            const auto first = candidate.choices.begin() + static_cast<std::ptrdiff_t>(from);
            const auto end = candidate.choices.begin() +
                             static_cast<std::ptrdiff_t>(std::min(from + part, best.choices.size()));
            if (std::all_of(first, end, [](unsigned choice) { return choice == 0; }))
                continue;
            std::fill(first, end, 0);
            hasChanged |= Try(candidate);
        }
        return hasChanged;
    }

    bool ShortenStalls()
    {
        bool hasChanged = false;
        for (std::size_t i = 0; i < best.interruptions.size(); ++i) {
            Recipe candidate = best;
            if (candidate.interruptions[i].stall == 0)
                continue;
            candidate.interruptions[i].stall = 0;
            hasChanged |= Try(candidate);
        }
        return hasChanged;
    }

    const Scene& scene;
    const std::string kind;
    Recipe best;
    int triesLeft = 3000;
};

}  // namespace

Recipe Shrink(const Scene& scene, const Outcome& failed, std::uint64_t seed)
{
    Recipe start{.seed = seed,
                 .orders = Orders::Given,
                 .interruptions = failed.interruptions,
                 .choices = failed.choices};
    return Shrinking(scene, failed.Kind(), start).Run();
}
