// The requests of CCommandChannel to the printer: one message, one reply.

#include <algorithm>
#include <cstring>

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/command_channel_message.h"
#include "link/wire_codes.h"
#include "link/wire_format.h"

// The lock spans both messages, so that two callers can't take each other's reply. Without memory for the
// request nothing has gone out; a reply that could not be taken would be the next caller's: the connection
// ends.
bool CCommandChannel::Exchange(const CCommandChannelMessage& request, CCommandChannelMessage& reply)
{
    CLockScope requesting(requestLock);
    if (!request.Send(*this))
        return false;
    try {
        return ProcessAsyncMessages(&reply);
    } catch (...) {
        Disconnect();
        throw;
    }
}

bool CCommandChannel::Answers(const CCommandChannelMessage& request, const CCommandChannelMessage& reply,
                              const char* complaint, CFunctionTrace& trace)
{
    if (reply.type == request.type && reply.requestId == request.requestId)
        return true;
    trace.Fail("%sExpected type %i, received type %i; expected request id %i, received request id %i.",
               complaint, request.type, reply.type, request.requestId, reply.requestId);
    return false;
}

bool CCommandChannel::HasSucceeded(const CCommandChannelMessage& reply, const char* complaint,
                                   CFunctionTrace& trace)
{
    if (reply.replyLengthOrError == 0)
        return true;
    trace.Fail("%s %i.", complaint, reply.replyLengthOrError);
    return false;
}

bool CCommandChannel::SendMessageAndGetResponse(const CCommandChannelMessage& request,
                                                CCommandChannelMessage& reply)
{
    CFunctionTrace trace("CCommandChannel::SendMessageAndGetResponse");
    if (IsCancelling() || !Exchange(request, reply)) {
        trace.Fail("Failed to send a message or get a response.");
        return false;
    }
    return Answers(request, reply, "Received unexpected response. ", trace) &&
           HasSucceeded(reply, "Received response indicates error", trace);
}

bool CCommandChannel::GetPrinterDataFromPort(DWORD controlId, const void* input, DWORD inputLength,
                                             void* output, DWORD outputLength, DWORD* returned)
{
    CFunctionTrace trace("CCommandChannel::GetPrinterDataFromPort");
    CCommandChannelMessage request(COMMAND_TYPE_PRINTER_DATA, controlId, outputLength);
    CCommandChannelMessage reply;
    const bool fits = inputLength <= CCommandChannelMessage::kMaxPayload;
    if (fits)
        request.SetPayload(input, inputLength);
    if (!fits || !SendMessageAndGetResponse(request, reply)) {
        trace.Fail("Failed to get printer data from port.");
        return false;
    }
    *returned = std::min(outputLength, reply.length);
    if (*returned != 0)
        std::memcpy(output, reply.data.get(), *returned);
    return true;
}

bool CCommandChannel::SuppressSysLogMessage()
{
    CFunctionTrace trace("CCommandChannel::SuppressSysLogMessage");
    const CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_SUPPRESS_SYSLOG, 0);
    CCommandChannelMessage reply;
    if (!SendMessageAndGetResponse(request, reply)) {
        trace.Fail("Failed to suppress system log messages.");
        return false;
    }
    return true;
}

bool CCommandChannel::StartParallelRead(SHORT requestedLength, DWORD* available)
{
    CFunctionTrace trace("CCommandChannel::StartParallelRead");
    const auto widened = static_cast<DWORD>(static_cast<LONG>(requestedLength));
    const CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_PARA_START_READ, widened);
    CCommandChannelMessage reply;
    if (!SendMessageAndGetResponse(request, reply)) {
        trace.Fail("Failed to start reading from parallel interface.");
        return false;
    }
    if (reply.length != 2) {
        trace.Fail(
            "Unexpected length of data in response to IOCTL_KREL_PARA_START_READ; expected 2, received %i.",
            reply.length);
        return false;
    }
    *available = LoadBig16(reply.data.get());
    return true;
}
