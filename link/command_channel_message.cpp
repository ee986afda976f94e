#include "link/command_channel_message.h"

#include <cstring>
#include <new>
#include <vector>

#include "link/command_channel.h"
#include "link/wire_format.h"

void CCommandChannelMessage::SetPayload(const void* bytes, DWORD size)
{
    data = size != 0 ? std::make_unique<BYTE[]>(size) : nullptr;
    length = size;
    if (size != 0)
        std::memcpy(data.get(), bytes, size);
}

bool CCommandChannelMessage::Send(CCommandChannel& channel) const
{
    std::vector<BYTE> frame(kHeaderSize + length);
    StoreBig32(&frame[0], type);
    StoreBig32(&frame[4], requestId);
    StoreBig32(&frame[8], replyLengthOrError);
    StoreBig32(&frame[12], length);
    if (length != 0)
        std::memcpy(&frame[kHeaderSize], data.get(), length);
    DWORD sent;
    return channel.Send(frame.data(), static_cast<DWORD>(frame.size()), &sent);
}

bool CCommandChannelMessage::Receive(CCommandChannel& channel)
{
    BYTE header[kHeaderSize];
    if (channel.Receive(header, kHeaderSize, false) != static_cast<LONG>(kHeaderSize))
        return false;
    StoreHeader(header);
    data = nullptr;
    if (length == 0)
        return true;
    if (!HasSoundLength(channel))
        return false;
    // The header is gone from the stream: without room for the payload, the stream is lost.
    std::unique_ptr<BYTE[]> payload(new (std::nothrow) BYTE[length]);
    if (!payload) {
        channel.Disconnect();
        return false;
    }
    for (DWORD gathered = 0; gathered != length;) {
        const LONG part = channel.Receive(payload.get() + gathered, length - gathered, false);
        if (part <= 0)
            return false;
        gathered += static_cast<DWORD>(part);
    }
    data = std::move(payload);
    return true;
}

bool CCommandChannelMessage::Peek(CCommandChannel& channel)
{
    BYTE header[kHeaderSize];
    if (channel.Receive(header, kHeaderSize, true) != static_cast<LONG>(kHeaderSize))
        return false;
    StoreHeader(header);
    if (length == 0)
        return true;
    if (!HasSoundLength(channel))
        return false;
    const DWORD total = kHeaderSize + length;
    if (channel.BytesAvailable() < static_cast<LONG>(total))
        return false;
    std::vector<BYTE> frame(total);
    if (channel.Receive(frame.data(), total, true) != static_cast<LONG>(total))
        return false;
    SetPayload(&frame[kHeaderSize], length);
    return true;
}

void CCommandChannelMessage::StoreHeader(const BYTE* header)
{
    type = LoadBig32(header);
    requestId = LoadBig32(header + 4);
    replyLengthOrError = LoadBig32(header + 8);
    length = LoadBig32(header + 12);
}

bool CCommandChannelMessage::HasSoundLength(CCommandChannel& channel) const
{
    if (length <= kMaxPayload)
        return true;
    channel.Disconnect();
    return false;
}
