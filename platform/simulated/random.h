#pragma once

#include <cstdint>

namespace simulated {

// A small generator, the same on every machine (the standard library's distributions are not).
class Random {
public:
    explicit Random(std::uint64_t seed) : state(seed) {}

    std::uint64_t Next()
    {
        state += 0x9E3779B97F4A7C15;
        return Mix(state);
    }
    // 0 to bound - 1.
    std::uint64_t Below(std::uint64_t bound)
    {
        return static_cast<std::uint64_t>((static_cast<unsigned __int128>(Next()) * bound) >> 64);
    }
    bool OneIn(std::uint64_t count) { return Below(count) == 0; }

    static std::uint64_t Mix(std::uint64_t value)
    {
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return value ^ (value >> 31);
    }

private:
    std::uint64_t state;
};

}  // namespace simulated
