#include "tools/farlink/failure.h"

#include <array>

#include "platform/posix/utf.h"
#include "spooler/spooler.h"
#include "tools/farlink/error_words.h"

namespace farlink {

namespace {

constexpr DWORD kFirstSocketWord = 10000;

std::string Sentence(const std::string& what, std::string why, DWORD word)
{
    if (why.ends_with('.'))
        why.pop_back();
    std::string sentence = what.empty() ? why : what + ": " + why;
    if (const ErrorWord* known = FindErrorWord(word); known != nullptr && known->remedy != nullptr)
        sentence += std::string("; ") + known->remedy;
    return sentence + " (" + NameOfWord(word) + ")";
}

}  // namespace

Failure PlatformFailure(const std::string& what, DWORD word)
{
    const ErrorWord* known = FindErrorWord(word);
    return Failure(Sentence(what, known == nullptr ? "it failed" : known->meaning, word));
}

Failure SpoolerFailure(const std::string& what)
{
    const DWORD word = GetLastError();
    std::array<char, 1024> text{};
    GetSpoolerErrorText(text.data(), static_cast<DWORD>(text.size()));
    if (text[0] == '\0')
        return PlatformFailure(what.empty() ? "The spooler failed" : what, word);
    return Failure(Sentence(what, text.data(), word));
}

Failure PortFailure(const WideString& port)
{
    const DWORD word = GetLastError();
    if (word >= kFirstSocketWord && FindErrorWord(word) != nullptr)
        return PlatformFailure("Port '" + ToUtf8(port) + "'", word);
    return SpoolerFailure();
}

}  // namespace farlink
