#pragma once

#include <string>
#include <vector>

namespace farlink {

// " (did you mean 'list'?)" for the candidate that a slip of the finger may have made the word of; empty if
// there is none.
std::string DidYouMean(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace farlink
