#include "link/sync_socket.h"

#include <algorithm>
#include <cstdio>

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/function_trace.h"
#include "link/resolver.h"
#include "link/wire_format.h"

namespace {

constexpr DWORD kMaxDumpedBytes = 100;
constexpr DWORD kMaxSingleSend = 1u << 30;
constexpr DWORD kMostDropped = 16u << 20;  // more than any connection holds: a server may talk without end

void DumpBytes(const void* buffer, DWORD count)
{
    if (!EventIsLogged(krelpmEventData))
        return;
    static constexpr char kDigits[] = "0123456789abcdef";
    const BYTE* bytes = static_cast<const BYTE*>(buffer);
    char line[kMaxDumpedBytes * 3 + 1];
    char* end = line;
    for (DWORD i = 0; i < std::min(count, kMaxDumpedBytes); ++i) {
        *end++ = ':';
        *end++ = kDigits[bytes[i] >> 4];
        *end++ = kDigits[bytes[i] & 0xF];
    }
    *end = '\0';
    vexkitTypeDiagnosticPuts(line);
}

// Nobody else reads, so that a recv of bytes that are there never waits.
void DropUnread(SOCKET handle)
{
    char dropped[16384];
    ULONG there = 0;
    for (DWORD total = 0; total < kMostDropped; total += sizeof dropped) {
        if (::ioctlsocket(handle, static_cast<long>(FIONREAD), &there) != 0 || there == 0 ||
            ::recv(handle, dropped, sizeof dropped, 0) <= 0)
            return;
    }
}

// Host names are plain ASCII: each character keeps its low byte, and no conversion table is involved.
std::string NarrowName(const WideString& name)
{
    std::string narrow;
    for (const WCHAR unit : name)
        narrow += static_cast<char>(unit & 0xFF);
    return narrow;
}

}  // namespace

COpenSocket::~COpenSocket()
{
    if (handle == INVALID_SOCKET)
        return;
    const DWORD lastError = GetLastError();
    if (endsInOrder)
        DropUnread(handle);
    (void)closesocket(handle);
    SetLastError(lastError);
}

CSyncSocket::CSyncSocket(LPCWSTR name, DWORD port) : serverName(name ? name : TEXT("")), serverPort(port)
{
    CFunctionTrace trace("CSyncSocket::CSyncSocket");
    WSADATA data;
    const int result = WSAStartup(0x0202, &data);
    if (result != 0) {
        trace.Fail("WSAStartup() failed, returning %i.", result);
        throw "WSAStartup() failed.";
    }
    wsaStarted = true;
}

CSyncSocket::~CSyncSocket()
{
    CFunctionTrace trace("CSyncSocket::~CSyncSocket");
    Disconnect();
    if (wsaStarted)
        (void)WSACleanup();
}

void CSyncSocket::Disconnect()
{
    (void)EndConnection();
}

void CSyncSocket::DisconnectInOrder()
{
    (void)EndConnection(true);
}

// Gives the number of disconnections so far, this one included.
unsigned CSyncSocket::EndConnection(bool inOrder)
{
    CFunctionTrace trace("CSyncSocket::Disconnect");
    std::shared_ptr<COpenSocket> dropped;
    std::shared_ptr<COpenSocket> woken;
    bool isAlone = false;
    unsigned count;
    {
        CLockScope handles(handleLock);
        count = ++disconnections;
        dropped = std::move(socketHandle);
        socketHandle.reset();
        if (dropped)
            lastDisconnected = dropped;
        isAlone = dropped.use_count() == 1;
        woken = lastDisconnected.lock();
    }
    if (dropped)
        trace.Log(krelpmEventInfo, "Disconnecting socket.");
    if (dropped && inOrder) {
        dropped->endsInOrder = true;  // for the last user
        if (isAlone)
            DropUnread(dropped->handle);
    }
    if (woken) {
        woken->disconnected = true;
        WakeBlockedCalls(woken->handle);
    }
    return count;
}

void CSyncSocket::Abandon()
{
    CLockScope handles(handleLock);
    abandoned = true;
    for (const std::shared_ptr<COpenSocket>& used : {socketHandle, lastDisconnected.lock()}) {
        if (used) {
            used->disconnected = true;
            WakeBlockedCalls(used->handle);
        }
    }
}

bool CSyncSocket::IsConnected() const
{
    CLockScope handles(handleLock);
    return socketHandle != nullptr;
}

bool CSyncSocket::Connect()
{
    CFunctionTrace trace("CSyncSocket::Connect");
    const unsigned begun = EndConnection();

    char port[12];
    (void)std::snprintf(port, sizeof port, "%i", static_cast<int>(serverPort));
    const std::string name = NarrowName(serverName);
    ADDRINFOA hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;

    const CResolver resolver = CResolver::Bound();
    ADDRINFOA* found = nullptr;
    WSASetLastError(resolver.getAddrInfo(name.c_str(), port, &hints, &found));
    const int error = WSAGetLastError();
    if (error != 0) {
        trace.Fail("Call to getaddrinfo() failed; WSAGetLastError returned %i.", error);
        return false;
    }
    if (!found) {
        trace.Fail("Server (%s) name could not be resolved!\n", name.c_str());
        return false;
    }
    const std::unique_ptr<ADDRINFOA, CResolver::FreeAddrInfo> addresses(found, resolver.freeAddrInfo);
    for (const ADDRINFOA* address = found; address; address = address->ai_next) {
        const Attempt attempt = ConnectTo(*address, begun, trace);
        if (attempt != Attempt::TryNext)
            return attempt == Attempt::Connected;
    }
    trace.Fail("Failed to connect.");
    return false;
}

CSyncSocket::Attempt CSyncSocket::ConnectTo(const ADDRINFOA& address, unsigned begun, CFunctionTrace& trace)
{
    const auto opened = std::make_shared<COpenSocket>();
    opened->handle = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (opened->handle == INVALID_SOCKET) {
        trace.Fail("Call to socket() failed; WSAGetLastError returned %i.", WSAGetLastError());
        return Attempt::GiveUp;
    }
    if (!Adopt(opened, begun)) {
        trace.Fail("Failed to connect.");
        return Attempt::GiveUp;
    }
    char host[1025];
    char service[32];
    WSASetLastError(CResolver::Bound().getNameInfo(address.ai_addr, static_cast<int>(address.ai_addrlen),
                                                   host, sizeof host, service, sizeof service,
                                                   NI_NUMERICHOST | NI_NUMERICSERV));
    const int error = WSAGetLastError();
    if (error != 0) {
        trace.Fail("Call to getnameinfo() failed; WSAGetLastError returned %i.", error);
        return Attempt::GiveUp;
    }
    if (!opened->disconnected &&
        ::connect(opened->handle, address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) {
        if (InUse() == opened && !opened->disconnected)
            return Attempt::Connected;
    } else {
        trace.Log(krelpmEventWarning, "Failed to connect to %s, port %s.", host, service);
    }
    if (Drop(opened))
        return Attempt::TryNext;
    trace.Fail("Failed to connect.");
    return Attempt::GiveUp;
}

// Puts a fresh socket into the field, unless somebody has ended the connection since the attempt began.
bool CSyncSocket::Adopt(const std::shared_ptr<COpenSocket>& opened, unsigned begun)
{
    CLockScope handles(handleLock);
    if (abandoned || disconnections != begun)
        return false;
    socketHandle = opened;
    return true;
}

// Takes the socket of a failed attempt out of the field. False when a Disconnect was faster.
bool CSyncSocket::Drop(const std::shared_ptr<COpenSocket>& opened)
{
    CLockScope handles(handleLock);
    if (abandoned || socketHandle != opened)
        return false;
    socketHandle.reset();
    return true;
}

std::shared_ptr<COpenSocket> CSyncSocket::InUse() const
{
    CLockScope handles(handleLock);
    return socketHandle;
}

LONG CSyncSocket::Receive(void* buffer, DWORD length, bool peek)
{
    CFunctionTrace trace("CSyncSocket::Receive");
    const std::shared_ptr<COpenSocket> used = InUse();
    const int asked = static_cast<int>(std::min(length, kMaxSingleSend));
    int result =
        ::recv(used ? used->handle : INVALID_SOCKET, static_cast<char*>(buffer), asked, peek ? MSG_PEEK : 0);
    if (result > 0) {
        DumpBytes(buffer, static_cast<DWORD>(result));
        return result;
    }
    int error = WSAGetLastError();
    if (result == 0 && used && used->disconnected) {
        result = SOCKET_ERROR;
        error = WSA_OPERATION_ABORTED;
    }
    Disconnect();
    trace.Fail("Call to recv() failed; WSAGetLastError returned %i.", error);
    return result;
}

bool CSyncSocket::Receive(char* value)
{
    CFunctionTrace trace("CSyncSocket::Receive(char*)");
    const LONG received = Receive(value, 1, false);
    if (received != 1) {
        trace.Fail("Failed to receive a char. Expected %i byte(s), received %i byte(s).", 1, received);
        return false;
    }
    return true;
}

bool CSyncSocket::Receive(short* value)
{
    CFunctionTrace trace("CSyncSocket::Receive(short*)");
    BYTE bytes[2];
    const LONG received = Receive(bytes, 2, false);
    if (received != 2) {
        trace.Fail("Failed to receive a short. Expected %i byte(s), received %i byte(s).", 2, received);
        return false;
    }
    *value = static_cast<short>(LoadBig16(bytes));
    return true;
}

bool CSyncSocket::Send(const void* buffer, DWORD length, DWORD* sent)
{
    CFunctionTrace trace("CSyncSocket::Send");
    DumpBytes(buffer, length);
    *sent = 0;
    const std::shared_ptr<COpenSocket> used = InUse();
    const SOCKET handle = used ? used->handle : INVALID_SOCKET;
    const char* bytes = static_cast<const char*>(buffer);
    do {
        const int part = static_cast<int>(std::min(length - *sent, kMaxSingleSend));
        const int result = ::send(handle, bytes + *sent, part, 0);
        if (result < 0) {
            const int error = used && used->disconnected ? WSA_OPERATION_ABORTED : WSAGetLastError();
            Disconnect();
            trace.Fail("Call to send() failed; WSAGetLastError returned %i.", error);
            return false;
        }
        *sent += static_cast<DWORD>(result);
    } while (*sent != length);
    return true;
}

LONG CSyncSocket::BytesAvailable()
{
    CFunctionTrace trace("CSyncSocket::BytesAvailable");
    const std::shared_ptr<COpenSocket> used = InUse();
    ULONG count = 0;
    if (::ioctlsocket(used ? used->handle : INVALID_SOCKET, static_cast<long>(FIONREAD), &count) != 0) {
        trace.Fail("Call to ioctlsocket() failed; WSAGetLastError returned %i.", WSAGetLastError());
        return -1;
    }
    return static_cast<LONG>(count);
}

bool CSyncSocket::CanSendAtOnce() const
{
    const std::shared_ptr<COpenSocket> used = InUse();
    return !used || IsWritable(used->handle);
}
