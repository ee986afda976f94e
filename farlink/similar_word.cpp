#include "farlink/similar_word.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace farlink {

namespace {

char Small(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 'a' - 'A') : letter;
}

// How many letters have to be put in, left out or replaced; letter case apart. Two neighbours that changed
// places count two.
std::size_t Distance(const std::string& left, const std::string& right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t replaced = diagonal + (Small(left[i]) == Small(right[j]) ? 0 : 1);
            diagonal = std::exchange(row[j + 1], std::min({replaced, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row.back();
}

}  // namespace

std::string DidYouMean(const std::string& word, const std::vector<std::string>& candidates)
{
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    const std::string* closest = nullptr;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = Distance(word, candidate);
        if (distance < least && distance < candidate.size()) {
            least = distance;
            closest = &candidate;
        }
    }
    return closest == nullptr ? "" : " (did you mean '" + *closest + "'?)";
}

}  // namespace farlink
