#include "link/command_channel.h"

#include "diagnostics/function_trace.h"
#include "link/data_channel.h"

CCommandChannel::CCommandChannel(const std::shared_ptr<CChannelOwner>& document, LPCWSTR address,
                                 DWORD portNumber, SHORT period, SHORT timeout)
    : CSyncSocket(address, portNumber), owner(document), keepAlivePeriod(period), keepAliveTimeout(timeout)
{
    CFunctionTrace trace("CCommandChannel::CCommandChannel",
                         "address = %S, port = %i, keepAlivePeriod = %i, keepAliveTimeout = %i",
                         address ? address : TEXT("NULL"), portNumber, period, timeout);
    lastKeepAliveReceived = GetTickCount();
    lastKeepAliveSent = GetTickCount();
}

// Runs when the last reference goes, on the worker's thread at the earliest when its loop has ended.
CCommandChannel::~CCommandChannel()
{
    if (workerThread)
        (void)CloseHandle(workerThread);
    if (exitEvent)
        (void)CloseHandle(exitEvent);
}

bool CCommandChannel::Send(const void* bytes, DWORD count, DWORD* sent)
{
    CFunctionTrace trace("CCommandChannel::Send", "len = %i", count);
    CLockScope sending(sendLock);
    return CSyncSocket::Send(bytes, count, sent);
}

LONG CCommandChannel::Receive(void* buffer, DWORD count, bool peek)
{
    CFunctionTrace trace("CCommandChannel::Receive", "len = %i", count);
    return CSyncSocket::Receive(buffer, count, peek);
}

LONG CCommandChannel::BytesAvailable()
{
    CFunctionTrace trace("CCommandChannel::BytesAvailable");
    return CSyncSocket::BytesAvailable();
}
