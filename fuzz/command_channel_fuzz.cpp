// What a print server sends on the command channel, to each use that the channel makes of it. The first byte
// is the size of the segments, the second the use.

#include "fuzz/attached_library.h"
#include "fuzz/byte_stream.h"
#include "link/command_channel.h"
#include "link/command_channel_message.h"

namespace {

enum class Use { OpenAndAsk, Notifications, AwaitReply, Poll };

constexpr int kLooks = 64;

void Ask(CCommandChannel& channel)
{
    if (!channel.Open() || !channel.StartLPQInfoNotifications())
        return;
    (void)channel.SuppressSysLogMessage();
    while (BytesUnread() > 0 && channel.IsConnected()) {
        BYTE answer[24];
        DWORD size = 0;
        if (channel.GetPrinterDataFromPort(7, "ab", 2, answer, sizeof answer, &size) && size > sizeof answer)
            __builtin_trap();
        if (!channel.StartParallelRead(100, &size))
            return;
    }
}

void Use(CCommandChannel& channel, enum Use use)
{
    if (use == Use::OpenAndAsk)
        return Ask(channel);
    if (!channel.Connect())
        return;
    if (use == Use::Notifications)
        (void)channel.StartLPQInfoNotifications();
    for (int look = 0; look < kLooks && BytesUnread() > 0; ++look) {
        CCommandChannelMessage reply;
        (void)channel.ProcessAsyncMessages(use == Use::AwaitReply ? &reply : nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    AttachLibrary();
    if (size < 2)
        return 0;
    ServeBytes({data + 2, size - 2}, std::size_t{data[0]} + 1);
    const auto channel = std::make_shared<CCommandChannel>(nullptr, TEXT("127.0.0.1"), 9102, 5, 20);
    Use(*channel, static_cast<enum Use>(data[1] % 4));
    channel->Shutdown();
    return 0;
}
