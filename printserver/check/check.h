#pragma once

#include "printserver/check/point.h"

#include <functional>
#include <vector>

namespace printserver::check {

enum class Verdict {
    Right,
    Wrong,
    NotReached,  // the opening failed, which is a point of its own
    NotSeen      // what the point is about did not come up
};
const char* NameOf(Verdict verdict);  // "right"

struct Finding {
    const Point* point = nullptr;
    Verdict verdict = Verdict::Right;
    std::string expected{};  // but for Right
    std::string came{};
    std::string page{};  // the sentence that was broken
};

std::vector<const Point*> AllPoints();
// Of these names; all for none. Throws std::invalid_argument for a name that no point has.
std::vector<const Point*> PointsNamed(const std::vector<std::string>& names);

int CardsOf(const std::vector<const Point*>& points);

// Runs one point against the server, on the caller's thread; takes seconds, for some points 40.
Finding RunPoint(const Point& point, const CheckOptions& options);

}  // namespace printserver::check
