#include "bench/bare_connection.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "printserver/wire.h"

namespace {

void Require(bool succeeded, const char* what)
{
    if (succeeded)
        return;
    std::perror(what);
    std::exit(1);
}

}  // namespace

BareConnection::BareConnection() : socket(::socket(AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(PeerPort());
    Require(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "connect");
    printserver::Bytes opening = printserver::Join(printserver::SessionId(0), printserver::TransMode());
    const auto size = static_cast<ssize_t>(opening.size());
    Require(recv(socket, opening.data(), opening.size(), MSG_WAITALL) == size, "recv");
}

BareConnection::~BareConnection()
{
    close(socket);
}

void BareConnection::Send(const void* bytes, std::size_t count) const
{
    for (const char* next = static_cast<const char*>(bytes); count > 0;) {
        const ssize_t sent = send(socket, next, count, MSG_NOSIGNAL);
        Require(sent >= 0, "send");
        next += sent;
        count -= static_cast<std::size_t>(sent);
    }
}

std::uint16_t PeerPort()
{
    const char* port = std::getenv("FARLINK_BENCH_PEER");
    return static_cast<std::uint16_t>(port != nullptr ? std::atoi(port) : 0);
}
