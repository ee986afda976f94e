#include "link/data_channel_message.h"

#include "diagnostics/function_trace.h"
#include "link/data_channel.h"

CDataChannelMessage::CDataChannelMessage()
{
    CFunctionTrace trace("CDataChannelMessage::CDataChannelMessage");
}

CDataChannelMessage::~CDataChannelMessage()
{
    CFunctionTrace trace("CDataChannelMessage::~CDataChannelMessage");
}

bool CDataChannelMessage::Receive(CDataChannel& channel)
{
    CFunctionTrace trace("CDataChannelMessage::Receive");
    char received;
    if (!channel.Receive(&received)) {
        trace.Fail("Failed to receive a command from data channel.");
        return false;
    }
    command = static_cast<signed char>(received);  // NOLINT(bugprone-signed-char-misuse): 0xFF is -1
    if (!channel.Receive(&length)) {
        trace.Fail("Failed to receive command length from data channel.");
        return false;
    }
    switch (command) {
        case TRANS_MODE:
            if (length == 0)
                return true;
            trace.Fail("TRANS_MODE data channel command should have no data.");
            return false;
        case SESSION_ID:
            return ReceiveSessionId(channel, trace);
        default:
            trace.Fail("Received unknown data channel message %i.", command);
            return false;
    }
}

bool CDataChannelMessage::ReceiveSessionId(CDataChannel& channel, CFunctionTrace& trace)
{
    if (length != 2) {
        trace.Fail("SESSION_ID should have 2 bytes of data but received %i.", length);
        return false;
    }
    if (!channel.Receive(&sessionId)) {
        trace.Fail("Failed to receive value of session id from data channel.");
        return false;
    }
    return true;
}
