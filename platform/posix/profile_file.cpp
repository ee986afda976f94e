#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/posix/call_switch.h"

namespace {

using Text = std::u16string_view;

// No honest file is longer; what lies beyond is not read.
constexpr std::size_t kMaxFileSize = 1 << 20;

// The first bytes of a regular file; nothing when there is none that can be read.
std::string ReadBytes(const std::string& name)
{
    const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return {};
    std::string bytes;
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        bytes.resize(std::min(static_cast<std::size_t>(status.st_size), kMaxFileSize));
        const ssize_t size = pread(descriptor, bytes.data(), bytes.size(), 0);
        bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    close(descriptor);
    return bytes;
}

std::u16string FromUtf16(std::string_view bytes, unsigned lowByte)
{
    std::u16string text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i + lowByte]);
        const auto high = static_cast<unsigned char>(bytes[i + 1 - lowByte]);
        text += static_cast<char16_t>(high << 8 | low);
    }
    return text;
}

std::u16string Decode(std::string_view bytes)
{
    std::u16string text;
    if (bytes.starts_with("\xFF\xFE"))
        text = FromUtf16(bytes.substr(2), 0);
    else if (bytes.starts_with("\xFE\xFF"))
        text = FromUtf16(bytes.substr(2), 1);
    else
        text = ToUtf16(bytes.starts_with("\xEF\xBB\xBF") ? bytes.substr(3) : bytes);
    // Nobody who gets a value expects a NUL before its end.
    std::replace(text.begin(), text.end(), char16_t{0}, char16_t{0xFFFD});
    return text;
}

Text Trim(Text text)
{
    const std::size_t first = text.find_first_not_of(u" \t");
    if (first == Text::npos)
        return {};
    return text.substr(first, text.find_last_not_of(u" \t") - first + 1);
}

Text Unquote(Text value)
{
    const bool quoted = value.size() >= 2 && value.front() == value.back() &&
                        (value.front() == u'"' || value.front() == u'\'');
    return quoted ? value.substr(1, value.size() - 2) : value;
}

bool SameName(Text left, LPCWSTR right)
{
    return lstrcmpiW(std::u16string(left).c_str(), right) == 0;
}

// Takes the next line off the text, which ends at CR, LF or both.
Text TakeLine(Text& text)
{
    const std::size_t length = std::min(text.find_first_of(u"\r\n"), text.size());
    const Text line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return line;
}

// In the first section of that name; further ones are not read.
std::optional<Text> FindValue(Text text, LPCWSTR section, LPCWSTR key)
{
    bool inSection = false;
    while (!text.empty()) {
        const Text line = Trim(TakeLine(text));
        if (line.empty() || line.front() == u';')
            continue;
        if (line.front() == u'[') {
            if (inSection)
                return std::nullopt;
            const std::size_t end = line.rfind(u']');
            inSection = end != Text::npos && SameName(Trim(line.substr(1, end - 1)), section);
            continue;
        }
        const std::size_t equals = line.find(u'=');
        if (inSection && equals != Text::npos && SameName(Trim(line.substr(0, equals)), key))
            return Unquote(Trim(line.substr(equals + 1)));
    }
    return std::nullopt;
}

Text WithoutTrailingBlanks(LPCWSTR text)
{
    const Text whole = text == nullptr ? Text() : Text(text);
    return whole.substr(0, whole.find_last_not_of(u" \t") + 1);
}

}  // namespace

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                               LPCWSTR fileName)
{
    return posix_layer::GuardedCall("GetPrivateProfileStringW", DWORD{0}, [&]() -> DWORD {
        if (buffer == nullptr || size == 0)
            return 0;
        std::u16string text;
        std::optional<Text> value;
        if (section != nullptr && key != nullptr && fileName != nullptr) {
            text = Decode(ReadBytes(ToUtf8(fileName)));
            value = FindValue(text, section, key);
        }
        const Text result = value ? *value : WithoutTrailingBlanks(defaultValue);
        const std::size_t length = std::min<std::size_t>(result.size(), size - 1);
        result.copy(buffer, length);
        buffer[length] = 0;
        return static_cast<DWORD>(length);
    });
}
