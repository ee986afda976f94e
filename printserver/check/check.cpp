#include "printserver/check/check.h"

#include <algorithm>

namespace printserver::check {

const char* NameOf(Verdict verdict)
{
    static constexpr const char* names[] = {"right", "WRONG", "not reached", "not seen"};
    return names[static_cast<std::size_t>(verdict)];
}

std::vector<const Point*> AllPoints()
{
    std::vector<const Point*> points;
    for (const auto& some : {OpeningPoints(), FramePoints(), SessionPoints(), DocumentPoints()})
        for (const Point& point : some)
            points.push_back(&point);
    return points;
}

std::vector<const Point*> PointsNamed(const std::vector<std::string>& names)
{
    const std::vector<const Point*> all = AllPoints();
    if (names.empty())
        return all;
    std::vector<const Point*> points;
    for (const std::string& name : names) {
        const auto found = std::ranges::find_if(all, [&](const Point* point) { return name == point->name; });
        if (found == all.end())
            throw std::invalid_argument("'" + name + "' is no point of the check");
        points.push_back(*found);
    }
    return points;
}

int CardsOf(const std::vector<const Point*>& points)
{
    int cards = 0;
    for (const Point* point : points)
        cards += point->cards;
    return cards;
}

Finding RunPoint(const Point& point, const CheckOptions& options)
{
    const auto found = [&point](Verdict verdict, const Mismatch& mismatch) {
        return Finding{&point, verdict, mismatch.expected, mismatch.what(),
                       mismatch.page != nullptr ? mismatch.page : point.page};
    };
    try {
        point.run(options);
        return {&point};
    } catch (const OpeningMismatch& mismatch) {
        if (std::string_view(mismatch.point) == point.name)
            return found(Verdict::Wrong, mismatch);
        return {&point, Verdict::NotReached, "",
                std::string("see ") + mismatch.point + ", which expects " + mismatch.expected + " and gets " +
                    mismatch.what(),
                ""};
    } catch (const Mismatch& mismatch) {
        return found(Verdict::Wrong, mismatch);
    } catch (const NotSeen& reason) {
        return {&point, Verdict::NotSeen, "", reason.what(), ""};
    }
}

}  // namespace printserver::check
