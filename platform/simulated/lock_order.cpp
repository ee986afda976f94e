#include "platform/simulated/lock_order.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace simulated {

namespace {

using Kind = int;

std::map<Kind, std::vector<Kind>> takenUnder;  // the inner locks of each
bool isChanged = false;

bool Reaches(Kind from, Kind wanted, std::set<Kind>& seen)
{
    if (from == wanted)
        return true;
    if (!seen.insert(from).second || !takenUnder.contains(from))
        return false;
    const std::vector<Kind>& inner = takenUnder.at(from);
    return std::any_of(inner.begin(), inner.end(), [&](Kind next) { return Reaches(next, wanted, seen); });
}

}  // namespace

int LockKind(const void* madeAt)
{
    static std::map<const void*, int> kinds;
    return kinds.emplace(madeAt, static_cast<int>(kinds.size())).first->second;
}

void NoteLockOrder(Kind outer, Kind inner)
{
    if (outer == inner)
        return;
    std::vector<Kind>& known = takenUnder[outer];
    if (std::find(known.begin(), known.end(), inner) != known.end())
        return;
    known.push_back(inner);
    isChanged = true;
}

std::string CircleOfLocks()
{
    if (!isChanged)
        return {};
    isChanged = false;
    for (const auto& [outer, inners] : takenUnder) {
        for (const Kind inner : inners) {
            std::set<Kind> seen;
            if (Reaches(inner, outer, seen))
                return "two locks are taken in both orders";
        }
    }
    return {};
}

}  // namespace simulated
