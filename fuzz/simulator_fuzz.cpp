// What a client sends to the print server simulator: the first byte chooses the channel and whether a
// document was under way before.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "printserver/sessions.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::array<int, 2> ends{};
    if (size < 1 || size > 60000 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0)
        return 0;
    ServerState state({});
    const bool command = (data[0] & 1) != 0;
    const auto peer =
        std::make_shared<Peer>(TcpConnection(ends[0]), command ? Channel::Command : Channel::Data, 1);
    if (write(ends[1], data + 1, size - 1) != static_cast<ssize_t>(size - 1))
        __builtin_trap();
    shutdown(ends[1], SHUT_WR);
    (command ? ServeCommand : ServeData)(state, peer);
    close(ends[1]);
    return 0;
}
