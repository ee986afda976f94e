#include "platform/posix/system_sockets.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/win32_kernel.h"
#include "platform/posix/win32_socket_errors.h"

namespace {

struct ErrorPair {
    int code;
    int wsa;
};

constexpr ErrorPair kErrors[] = {
    {EINTR, WSAEINTR},
    {EBADF, WSAENOTSOCK},  // a closed handle and a file alike are no sockets
    {ENOTSOCK, WSAENOTSOCK},
    {ENOTTY, WSAENOTSOCK},
    {EACCES, WSAEACCES},
    {EPERM, WSAEACCES},
    {EFAULT, WSAEFAULT},
    {EINVAL, WSAEINVAL},
    {EMFILE, WSAEMFILE},
    {ENFILE, WSAEMFILE},
    {EAGAIN, WSAEWOULDBLOCK},
    {EALREADY, WSAEALREADY},
    {EPROTONOSUPPORT, WSAEPROTONOSUPPORT},
    {ESOCKTNOSUPPORT, WSAESOCKTNOSUPPORT},
    {EOPNOTSUPP, WSAEOPNOTSUPP},
    {EAFNOSUPPORT, WSAEAFNOSUPPORT},
    {EADDRINUSE, WSAEADDRINUSE},
    {EADDRNOTAVAIL, WSAEADDRNOTAVAIL},
    {ENETDOWN, WSAENETDOWN},
    {ENETUNREACH, WSAENETUNREACH},
    {ECONNABORTED, WSAECONNABORTED},
    {ECONNRESET, WSAECONNRESET},
    {EPIPE, WSAECONNRESET},  // the peer is gone, or we shut the direction down ourselves
    {ENOBUFS, WSAENOBUFS},
    {ENOMEM, WSAENOBUFS},
    {EISCONN, WSAEISCONN},
    {ENOTCONN, WSAENOTCONN},
    {ETIMEDOUT, WSAETIMEDOUT},
    {ECONNREFUSED, WSAECONNREFUSED},
    {EHOSTUNREACH, WSAEHOSTUNREACH},
    {EHOSTDOWN, WSAEHOSTUNREACH},
};

void Fail(int code)
{
    SetLastError(static_cast<DWORD>(system_sockets::WsaError(code)));
}

bool Succeeded(int result)
{
    if (result >= 0)
        return true;
    Fail(errno);
    return false;
}

template <class Call>
auto Uninterrupted(Call call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

bool IsSocket(int descriptor)
{
    int type = 0;
    socklen_t size = sizeof type;
    return Succeeded(getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size));
}

// A connect that a signal interrupts goes on in the system and can't be called again: this waits for
// its end. Whoever shuts the socket down meanwhile ends it without an error of its own. False with errno.
bool AwaitConnection(int descriptor)
{
    pollfd waited{descriptor, POLLOUT, 0};
    if (Uninterrupted([&] { return poll(&waited, 1, -1); }) < 0)
        return false;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return false;
    sockaddr_in peer{};
    socklen_t peerSize = sizeof peer;
    if (error == 0 && getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0)
        error = ECONNRESET;  // as for a connect that wasn't interrupted
    errno = error;
    return error == 0;
}

}  // namespace

namespace system_sockets {

int WsaError(int code)
{
    for (const ErrorPair& pair : kErrors) {
        if (pair.code == code)
            return pair.wsa;
    }
    return WSAEINVAL;
}

int OpenStream()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    return Succeeded(descriptor) ? descriptor : -1;
}

bool Connect(int descriptor, const sockaddr* address, int length)
{
    if (connect(descriptor, address, static_cast<socklen_t>(length)) == 0 ||
        (errno == EINTR && AwaitConnection(descriptor)))
        return true;
    // A peer refuses a connect; reset is one that was shut down here.
    if (errno == ECONNRESET)
        SetLastError(WSA_OPERATION_ABORTED);
    else
        Fail(errno);
    return false;
}

int Send(int descriptor, const char* buffer, int length)
{
    const ssize_t sent = Uninterrupted(
        [&] { return send(descriptor, buffer, static_cast<std::size_t>(length), MSG_NOSIGNAL); });
    return Succeeded(static_cast<int>(sent)) ? static_cast<int>(sent) : -1;
}

int Receive(int descriptor, char* buffer, int length, bool peek)
{
    const ssize_t received = Uninterrupted(
        [&] { return recv(descriptor, buffer, static_cast<std::size_t>(length), peek ? MSG_PEEK : 0); });
    if (received == 0)
        SetLastError(ERROR_SUCCESS);
    return Succeeded(static_cast<int>(received)) ? static_cast<int>(received) : -1;
}

bool Shutdown(int descriptor, int how)
{
    return Succeeded(shutdown(descriptor, how));
}

bool Close(int descriptor)
{
    if (!IsSocket(descriptor))
        return false;
    close(descriptor);  // whatever it says, the descriptor is gone
    return true;
}

bool CountReadable(int descriptor, unsigned* count)
{
    int readable = 0;
    if (!IsSocket(descriptor) || !Succeeded(ioctl(descriptor, FIONREAD, &readable)))
        return false;
    *count = static_cast<unsigned>(readable);
    return true;
}

bool SendWouldNotBlock(int descriptor)
{
    pollfd asked{descriptor, POLLOUT, 0};
    // A broken connection counts as well: a send on it fails at once.
    return Uninterrupted([&] { return poll(&asked, 1, 0); }) > 0 && (asked.revents & POLLNVAL) == 0;
}

}  // namespace system_sockets
