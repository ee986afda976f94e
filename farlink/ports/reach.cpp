#include "farlink/ports/reach.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "printserver/tcp.h"

namespace farlink {

using printserver::NoConnection;

namespace {

constexpr printserver::Milliseconds kConnectWait{5000};
constexpr std::size_t kMostTried = 256;

}  // namespace

Reach TryPort(const PortSettings& port)
{
    const auto number = static_cast<std::uint16_t>(port.number + 2);
    const std::string server = ToUtf8(port.server);
    const std::string place = server + ", TCP port " + std::to_string(number);
    NoConnection why{};
    if (printserver::ConnectTo(server, number, kConnectWait, &why))
        return {true, place + " takes connections from here"};
    switch (why) {
        case NoConnection::UnknownName:
            return {false, "nothing is known by the name '" + server + "'"};
        case NoConnection::Silence:
            return {false, "nothing answers at " + place +
                               "; is it switched on? A firewall that drops connections looks so too"};
        case NoConnection::Refused:
            break;
    }
    return {false, "nothing listens on " + place + ", or there is no way to it from here"};
}

std::vector<Reach> TryPorts(const std::vector<PortEntry>& ports)
{
    std::vector<Reach> reached(ports.size());
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < std::min(ports.size(), kMostTried); ++i)
        threads.emplace_back([&] {
            for (std::size_t mine = next++; mine < ports.size(); mine = next++)
                reached[mine] = TryPort(ports[mine].settings);
        });
    threads.clear();
    return reached;
}

}  // namespace farlink
