#include "farlink/wide_text.h"

#include "platform/posix/utf.h"

namespace farlink {

std::string ToUtf8(WideStringView text)
{
    return ::ToUtf8(text);
}

WideString ToUtf16(std::string_view text)
{
    return ::ToUtf16(text);
}

std::filesystem::path PathOf(const std::string& name)
{
    return name;  // its bytes, whatever they mean
}

}  // namespace farlink
