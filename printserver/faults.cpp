#include "printserver/faults.h"

#include <algorithm>
#include <stdexcept>

namespace printserver {
namespace {

constexpr const char* kStepNames[] = {
    "session-id",  "trans-mode",   "version-reply",  "bind-reply",        "start-keep-alives-reply",
    "keep-alive",  "first-record", "notification",   "suppress-reply",    "parallel-read-reply",
    "query-reply", "accept-data",  "accept-command", "client-keep-alive", "data-middle",
    "end-of-data"};

// Where the fields of a message stand. The data channel's messages are a command byte and a 16-bit length.
struct Layout {
    std::size_t lengthAt;
    std::size_t lengthSize;
    std::size_t headerSize;
};

Layout LayoutOf(Channel channel)
{
    return channel == Channel::Data ? Layout{1, 2, 3} : Layout{12, 4, kHeaderSize};
}

void Put(Bytes& message, std::size_t at, std::size_t size, std::uint32_t value)
{
    const Bytes field = U32(value);
    std::copy(field.end() - static_cast<std::ptrdiff_t>(size), field.end(),
              message.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace

const char* NameOf(Step step)
{
    return kStepNames[static_cast<std::size_t>(step)];
}

std::optional<Step> StepNamed(std::string_view name)
{
    const auto* found = std::ranges::find(kStepNames, name);
    if (found == std::end(kStepNames))
        return std::nullopt;
    return static_cast<Step>(found - std::begin(kStepNames));
}

bool IsMessage(Step step)
{
    return step < Step::AcceptData;
}

bool Fault::FitsMomentsToo() const
{
    return kind == Kind::Close || kind == Kind::Reset || kind == Kind::Silence || kind == Kind::Delay;
}

Fault Fault::AfterBytes(std::uint64_t count) const
{
    Fault later = *this;
    later.afterBytes = count;
    return later;
}

Fault Fault::ClosingAfter() const
{
    Fault closing = *this;
    closing.closesAfter = true;
    closing.name = "half-close";
    return closing;
}

Bytes Fault::Change(Bytes message, Channel channel) const
{
    const Layout layout = LayoutOf(channel);
    switch (kind) {
        case Kind::Instead:
            return bytes;
        case Kind::InFront:
            return Join(bytes, message);
        case Kind::Half:
            message.resize(std::min<std::size_t>(message.size(), number));
            return message;
        case Kind::WrongType:
            Put(message, 0, channel == Channel::Data ? 1 : 4, number);
            return message;
        case Kind::WrongId:
            Put(message, 4, 4, number);
            return message;
        case Kind::Error:
            Put(message, 8, 4, number);
            return message;
        case Kind::Length:
            Put(message, layout.lengthAt, layout.lengthSize, number);
            return message;
        case Kind::Payload:
            message.resize(layout.headerSize);
            Put(message, layout.lengthAt, layout.lengthSize, static_cast<std::uint32_t>(bytes.size()));
            return Join(std::move(message), bytes);
        default:
            return message;
    }
}

void FaultTable::Add(Step step, Fault fault, int occurrence)
{
    const bool needsFrame = fault.TheKind() == Fault::Kind::WrongId || fault.TheKind() == Fault::Kind::Error;
    const bool opensData = step == Step::SessionId || step == Step::TransMode;
    if ((!IsMessage(step) && !fault.FitsMomentsToo()) || (opensData && needsFrame))
        throw std::invalid_argument(std::string("The fault '") + fault.Name() + "' does not fit " +
                                    NameOf(step));
    const std::scoped_lock scope(lock);
    entries.push_back({step, std::move(fault), occurrence, 0});
}

void FaultTable::Clear()
{
    const std::scoped_lock scope(lock);
    entries.clear();
}

std::optional<Fault> FaultTable::Take(Step step)
{
    const std::scoped_lock scope(lock);
    std::optional<Fault> due;
    for (Entry& entry : entries) {
        if (entry.step != step)
            continue;
        ++entry.seen;
        if (!due && (entry.occurrence == 0 || entry.occurrence == entry.seen))
            due = entry.fault;
    }
    return due;
}

}  // namespace printserver
