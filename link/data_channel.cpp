#include "link/data_channel.h"

#include "diagnostics/function_trace.h"
#include "link/data_channel_message.h"

CDataChannel::CDataChannel(LPCWSTR address, DWORD port) : CSyncSocket(address, port)
{
    CFunctionTrace trace("CDataChannel::CDataChannel", "address = %S, port = %i",
                         address ? address : TEXT("NULL"), port);
}

CDataChannel::~CDataChannel()
{
    CFunctionTrace trace("CDataChannel::~CDataChannel");
}

bool CDataChannel::Open()
{
    CFunctionTrace trace("CDataChannel::Open");
    if (!Connect()) {
        trace.Fail("Failed to connect underlying CSyncSocket.");
        return false;
    }
    CDataChannelMessage session;
    if (!session.Receive(*this) || session.command != CDataChannelMessage::SESSION_ID) {
        trace.Fail(
            "Failed to receive session id as the first message. Expected command %i, received command %i.",
            CDataChannelMessage::SESSION_ID, session.command);
        return false;
    }
    sessionId = session.sessionId;
    trace.Log(krelpmEventInfo, "Received session id %i.", sessionId);
    CDataChannelMessage mode;
    if (!mode.Receive(*this) || mode.command != CDataChannelMessage::TRANS_MODE) {
        trace.Fail("Data channel did not switch to transparent mode.");
        return false;
    }
    return true;
}

void CDataChannel::Close()
{
    CFunctionTrace trace("CDataChannel::Close");
    Disconnect();
}

void CDataChannel::CloseWhole()
{
    CFunctionTrace trace("CDataChannel::Close");
    DisconnectInOrder();
}

bool CDataChannel::Receive(void* buffer, DWORD length, DWORD* received)
{
    CFunctionTrace trace("CDataChannel::Receive");
    const LONG result = CSyncSocket::Receive(buffer, length, false);
    if (result < 0) {
        trace.Fail("Failed to receive data.");
        return false;
    }
    *received = static_cast<DWORD>(result);
    return true;
}

bool CDataChannel::Receive(char* value)
{
    CFunctionTrace trace("CDataChannel::Receive(char)");
    return CSyncSocket::Receive(value);
}

bool CDataChannel::Receive(short* value)
{
    CFunctionTrace trace("CDataChannel::Receive(short*)");
    return CSyncSocket::Receive(value);
}
