#include "diagnostics/format_text.h"

#include <charconv>
#include <cstring>

namespace {

bool IsContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The part of a text longer than `room` bytes that these hold without splitting a character. Text that isn't
// UTF-8 is cut at the room.
std::size_t WholeCharacters(const char* text, std::size_t room)
{
    for (std::size_t back = 0; back < 4 && back <= room; back++) {
        if (!IsContinuation(text[room - back]))
            return room - back;
    }
    return room;
}

// The text built so far. Once something had to be cut, nothing is taken any more.
class CBoundedText {
public:
    CBoundedText(char* target, std::size_t size) : buffer(target), room(size - 1) {}

    void Append(char letter)
    {
        if (room == 0)
            return;
        buffer[length++] = letter;
        --room;
    }

    void Append(const char* text, std::size_t textLength)
    {
        const std::size_t taken = textLength <= room ? textLength : WholeCharacters(text, room);
        std::memcpy(buffer + length, text, taken);
        length += taken;
        room = taken == textLength ? room - taken : 0;
    }

    bool IsFull() const { return room == 0; }

    std::size_t Finish()
    {
        buffer[length] = '\0';
        return length;
    }

private:
    char* const buffer;
    std::size_t length = 0;
    std::size_t room;
};

// A loop over a few letters known here costs less than the library's call.
constexpr bool IsOneOf(char letter, const char* letters)
{
    while (*letters != '\0' && *letters != letter)
        letters++;
    return *letters != '\0';
}

std::size_t LengthBeforeConversion(const char* format)
{
    const char* end = format;
    while (*end != '\0' && *end != '%')
        end++;
    return static_cast<std::size_t>(end - format);
}

struct Conversion {
    char letter = '\0';
    bool zeroFilled = false;
    std::size_t width = 0;
};

// Reads what stands behind a '%' and leaves `format` behind it. The letter is NUL when the format
// ends too early.
Conversion ReadConversion(const char*& format)
{
    Conversion conversion;
    for (; *format == '0'; format++)
        conversion.zeroFilled = true;
    for (; *format >= '0' && *format <= '9' && conversion.width < 100; format++)
        conversion.width = conversion.width * 10 + static_cast<std::size_t>(*format - '0');
    while (IsOneOf(*format, "lhz"))
        format++;
    conversion.letter = *format;
    if (*format != '\0')
        format++;
    return conversion;
}

// A code point of UTF-16 text; a lone surrogate gives the replacement character.
char32_t ReadCodePoint(const WCHAR*& text)
{
    const char32_t first = static_cast<char16_t>(*text++);
    if (first < 0xD800 || first > 0xDFFF)
        return first;
    const char32_t second = static_cast<char16_t>(*text);
    if (first > 0xDBFF || second < 0xDC00 || second > 0xDFFF)
        return 0xFFFD;
    text++;
    return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

// Of a code point beyond ASCII.
void AppendCodePoint(CBoundedText& text, char32_t code)
{
    char bytes[4];
    std::size_t length = 0;
    const auto put = [&](char32_t byte) { bytes[length++] = static_cast<char>(byte); };
    if (code < 0x800) {
        put(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
        put(0xE0 | (code >> 12));
        put(0x80 | ((code >> 6) & 0x3F));
    } else {
        put(0xF0 | (code >> 18));
        put(0x80 | ((code >> 12) & 0x3F));
        put(0x80 | ((code >> 6) & 0x3F));
    }
    put(0x80 | (code & 0x3F));
    text.Append(bytes, length);
}

void AppendWide(CBoundedText& text, const WCHAR* wide)
{
    while (*wide != 0 && !text.IsFull()) {
        if (*wide < 0x80)
            text.Append(static_cast<char>(*wide++));
        else
            AppendCodePoint(text, ReadCodePoint(wide));
    }
}

void AppendText(CBoundedText& text, const FormatArgument& argument)
{
    if (argument.kind == FormatArgument::Kind::Wide && argument.wide != nullptr) {
        AppendWide(text, argument.wide);
    } else {
        const char* narrow = argument.kind == FormatArgument::Kind::Narrow && argument.narrow != nullptr
                                 ? argument.narrow
                                 : "NULL";
        text.Append(narrow, std::strlen(narrow));
    }
}

// The bits of an argument that are its own: a negative 32-bit number in hexadecimal has 8 digits.
std::uint64_t OwnBits(const FormatArgument& argument)
{
    return argument.size == 8 ? argument.bits
                              : argument.bits & ((std::uint64_t{1} << (argument.size * 8)) - 1);
}

std::int64_t AsSigned(const FormatArgument& argument)
{
    const int unused = 64 - argument.size * 8;
    return static_cast<std::int64_t>(argument.bits << unused) >> unused;
}

void AppendInteger(CBoundedText& text, const Conversion& conversion, const FormatArgument& argument)
{
    char digits[24] = {};
    char* first = digits;
    std::uint64_t magnitude = OwnBits(argument);
    if ((conversion.letter == 'i' || conversion.letter == 'd') && AsSigned(argument) < 0) {
        *first++ = '-';
        magnitude = 0 - static_cast<std::uint64_t>(AsSigned(argument));
    }
    const bool hexadecimal = conversion.letter == 'x' || conversion.letter == 'X';
    const auto end = std::to_chars(first, digits + sizeof(digits), magnitude, hexadecimal ? 16 : 10).ptr;
    if (conversion.letter == 'X') {
        for (char* digit = first; digit < end; digit++)
            *digit = static_cast<char>(*digit >= 'a' ? *digit - 'a' + 'A' : *digit);
    }
    const std::size_t sign = conversion.zeroFilled ? static_cast<std::size_t>(first - digits) : 0;
    const auto length = static_cast<std::size_t>(end - digits);
    text.Append(digits, sign);
    for (std::size_t filled = length; filled < conversion.width; filled++)
        text.Append(conversion.zeroFilled ? '0' : ' ');
    text.Append(digits + sign, length - sign);
}

void AppendConversion(CBoundedText& text, const Conversion& conversion, const FormatArgument& argument)
{
    const bool isText =
        argument.kind == FormatArgument::Kind::Narrow || argument.kind == FormatArgument::Kind::Wide;
    if (IsOneOf(conversion.letter, "sS") && isText)
        AppendText(text, argument);
    else if (IsOneOf(conversion.letter, "diuxX") && !isText)
        AppendInteger(text, conversion, argument);
    else
        text.Append('?');
}

}  // namespace

std::size_t FormatText(char* buffer, std::size_t size, const char* format, FormatArguments arguments)
{
    CBoundedText text(buffer, size);
    const FormatArgument* next = arguments.begin();
    while (*format != '\0' && !text.IsFull()) {
        const std::size_t plain = LengthBeforeConversion(format);
        text.Append(format, plain);
        format += plain;
        if (*format == '\0')
            break;
        const Conversion conversion = ReadConversion(++format);
        if (conversion.letter == '%')
            text.Append('%');
        else if (conversion.letter == '\0' || next == arguments.end())
            text.Append('?');
        else
            AppendConversion(text, conversion, *next++);
    }
    return text.Finish();
}
