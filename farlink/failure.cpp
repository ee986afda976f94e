#include "farlink/failure.h"

#include "farlink/error_words.h"

namespace farlink {

Failure PlatformFailure(const std::string& what, DWORD word)
{
    const ErrorWord* known = FindErrorWord(word);
    return PlatformFailure(what, word, known == nullptr ? "it failed" : known->meaning);
}

Failure PlatformFailure(const std::string& what, DWORD word, std::string why)
{
    if (why.ends_with('.'))
        why.pop_back();
    std::string sentence = what.empty() ? why : what + ": " + why;
    if (const ErrorWord* known = FindErrorWord(word); known != nullptr && known->remedy != nullptr)
        sentence += std::string("; ") + known->remedy;
    return Failure(sentence + " (" + NameOfWord(word) + ")");
}

}  // namespace farlink
