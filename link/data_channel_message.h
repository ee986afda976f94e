#pragma once

#include "platform/platform.h"

class CDataChannel;

// One of the two messages with which the server opens a data connection: a command byte, a 16-bit
// length and that many bytes. Lives for one read.
class CDataChannelMessage {
public:
    static constexpr LONG TRANS_MODE = 1;  // all that follows is job data
    static constexpr LONG SESSION_ID = 2;  // 16 bits: the server's number for this connection

    CDataChannelMessage();
    ~CDataChannelMessage();
    CDataChannelMessage(const CDataChannelMessage&) = delete;
    CDataChannelMessage& operator=(const CDataChannelMessage&) = delete;

    // Reads the message field by field, so that not a byte of what follows is taken. A field must come
    // in one piece. The data of a message that is refused stays unread.
    bool Receive(CDataChannel& channel);

    LONG command = 0;  // the byte, with its sign
    SHORT length = 0;
    SHORT sessionId = 0;

private:
    bool ReceiveSessionId(CDataChannel& channel, class CFunctionTrace& trace);
};
