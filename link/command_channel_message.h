#pragma once

#include <memory>

#include "platform/platform.h"

class CCommandChannel;

// One message of the command channel, its header in host order. A frame on the wire is a header of 16
// bytes, four big-endian numbers, and `length` bytes of payload.
//
// The operations report by result alone; who called them says in the log what was going on. Reading
// takes the channel's receiveLock, held by the caller.
class CCommandChannelMessage {
public:
    CCommandChannelMessage() = default;
    // A request without payload.
    CCommandChannelMessage(DWORD messageType, DWORD request, DWORD replyLength)
        : type(messageType), requestId(request), replyLengthOrError(replyLength)
    {
    }

    // Gives the message a payload of its own, copied from `bytes`.
    void SetPayload(const void* bytes, DWORD size);

    // Writes the whole frame in one piece.
    bool Send(CCommandChannel& channel) const;

    // Takes the next message off the socket; blocks until the socket delivers. A payload that arrives in
    // pieces is gathered until it is whole. A header that comes short fails and leaves the message as it
    // was, with those bytes gone from the stream.
    bool Receive(CCommandChannel& channel);

    // Copies the next message if it is there in full, and leaves it on the socket. Never blocks when
    // BytesAvailable was at least kHeaderSize before.
    bool Peek(CCommandChannel& channel);

    static constexpr DWORD kHeaderSize = 16;
    // No print server sends this much; a header that announces more is no header, and the stream is lost.
    static constexpr DWORD kMaxPayload = 16u << 20;

    DWORD type = 0;
    DWORD requestId = 0;
    DWORD replyLengthOrError = 0;  // wanted reply size in a request, error code in a reply
    DWORD length = 0;
    std::unique_ptr<BYTE[]> data;  // null without payload

private:
    void StoreHeader(const BYTE* header);
    bool HasSoundLength(CCommandChannel& channel) const;
};
