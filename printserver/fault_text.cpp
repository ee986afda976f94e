#include "printserver/fault_text.h"

#include <charconv>
#include <cstdlib>
#include <stdexcept>

namespace printserver {
namespace {

[[noreturn]] void Refuse(const std::string& what)
{
    throw std::invalid_argument(what);
}

std::uint32_t Number(const std::string& text)
{
    const bool hexadecimal = text.starts_with("0x");
    const char* first = text.data() + (hexadecimal ? 2 : 0);
    const char* last = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != last)
        Refuse("'" + text + "' is no number");
    return number;
}

Milliseconds Seconds(const std::string& text)
{
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= 86400))
        Refuse("'" + text + "' is no time in seconds");
    return Milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

Bytes Hexadecimal(const std::string& text)
{
    Bytes bytes;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        std::uint8_t byte = 0;
        const char* last = text.data() + at + 2;
        if (at + 2 > text.size() || std::from_chars(text.data() + at, last, byte, 16).ptr != last)
            Refuse("'" + text + "' is no row of bytes in hexadecimal");
        bytes.push_back(byte);
    }
    return bytes;
}

struct Kind {
    const char* name;
    const char* value;  // what it is, or null for none
    Fault (*make)(const std::string& value);
};

constexpr Kind kKinds[] = {
    {"close", nullptr, [](const std::string&) { return Fault::Close(); }},
    {"reset", nullptr, [](const std::string&) { return Fault::Reset(); }},
    {"silence", nullptr, [](const std::string&) { return Fault::Silence(); }},
    {"delay", "SECONDS", [](const std::string& value) { return Fault::Delay(Seconds(value)); }},
    {"drop", nullptr, [](const std::string&) { return Fault::Drop(); }},
    {"garbage", nullptr, [](const std::string&) { return Fault::Garbage(); }},
    {"instead", "HEX", [](const std::string& value) { return Fault::Instead(Hexadecimal(value)); }},
    {"front", "HEX", [](const std::string& value) { return Fault::InFront(Hexadecimal(value)); }},
    {"half", "BYTES", [](const std::string& value) { return Fault::HalfThenSilence(Number(value)); }},
    {"half-close", "BYTES", [](const std::string& value) { return Fault::HalfThenClose(Number(value)); }},
    {"single-bytes", nullptr, [](const std::string&) { return Fault::SingleBytes(); }},
    {"type", "N", [](const std::string& value) { return Fault::WrongType(Number(value)); }},
    {"id", "N", [](const std::string& value) { return Fault::WrongId(Number(value)); }},
    {"error", "N", [](const std::string& value) { return Fault::Error(Number(value)); }},
    {"payload", "HEX", [](const std::string& value) { return Fault::Payload(Hexadecimal(value)); }},
    {"length", "N", [](const std::string& value) { return Fault::Length(Number(value)); }}};

Fault FaultOf(const std::string& name, const std::optional<std::string>& value)
{
    for (const Kind& kind : kKinds) {
        if (kind.name != name)
            continue;
        if (kind.value == nullptr && value)
            Refuse("'" + name + "' takes no value");
        if (kind.value != nullptr && !value)
            Refuse("'" + name + "' wants a value: " + name + "=" + kind.value);
        return kind.make(value.value_or(""));
    }
    Refuse("'" + name + "' is no fault");
}

// Cuts the text at the mark and gives what stood behind it.
std::optional<std::string> CutBehind(std::string& text, char mark)
{
    const std::size_t at = text.find(mark);
    if (at == std::string::npos)
        return std::nullopt;
    std::string behind = text.substr(at + 1);
    text.resize(at);
    return behind;
}

}  // namespace

PlannedFault ParseFault(const std::string& text)
{
    std::string name = text;
    const auto occurrence = CutBehind(name, '#');
    const auto threshold = CutBehind(name, '@');
    const auto value = CutBehind(name, '=');
    const auto kind = CutBehind(name, ':');
    const auto step = StepNamed(name);
    if (!kind || !step)
        Refuse("'" + text + "' is no fault: it starts with a step and a colon");
    PlannedFault planned{*step, FaultOf(*kind, value), 0};
    if (threshold)
        planned.fault = planned.fault.AfterBytes(Number(*threshold));
    if (occurrence)
        planned.occurrence = static_cast<int>(Number(*occurrence));
    FaultTable().Add(planned.step, planned.fault, planned.occurrence);  // throws when they don't go together
    return planned;
}

std::string FaultHelp()
{
    std::string help =
        "Faults are STEP:KIND, at their end #N for the Nth time only, and @BYTES for data-middle.\nSteps:";
    for (int step = 0; step <= static_cast<int>(Step::EndOfData); ++step)
        help += std::string(step % 5 == 0 ? "\n  " : " ") + NameOf(static_cast<Step>(step));
    help += "\nKinds:";
    int count = 0;
    for (const Kind& kind : kKinds) {
        help += std::string(count++ % 8 == 0 ? "\n  " : " ") + kind.name;
        if (kind.value != nullptr)
            help += std::string("=") + kind.value;
    }
    return help;
}

}  // namespace printserver
