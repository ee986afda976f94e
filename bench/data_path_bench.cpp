// A document's bytes, against the system's own `send`.

#include <filesystem>
#include <fstream>
#include <memory>

#include "bench/bare_connection.h"
#include "bench/pairs.h"
#include "bench/running_monitor.h"

namespace {

constexpr int kKiB = 1024;
constexpr int kMiB = 1024 * kKiB;

// Lets the peer take what is still on its way, which is not the next measurement's business.
void LetPeerCatchUp()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

bool AddBuffers(const char* what, int size, double wanted)
{
    return AddRow({what, "bare `send` loop", Row::RateAtLeast, wanted, 151}, [size](Pairs& pairs) {
        const RunningMonitor monitor(1);
        const BareConnection bare;
        const HANDLE port = monitor.Open(0);
        std::vector<BYTE> buffer(static_cast<std::size_t>(size), 'x');
        const auto all = [&](auto send) {
            LetPeerCatchUp();
            return Timed(32 * kMiB / size, send);
        };
        monitor.StartDocument(port);
        pairs.Run([&] { return all([&] { monitor.Write(port, buffer); }); },
                  [&] { return all([&] { bare.Send(buffer.data(), buffer.size()); }); });
        monitor.EndDocument(port);
    });
}

// What the process has of a thing at a moment, by the name in its status; in KiB, where that is a size.
double Has(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    std::string word;
    double value = 0;
    while (status >> word)
        if (word == name + ":" && status >> value)
            break;
    return value;
}

double OpenFiles()
{
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<double>(std::distance(begin(files), end(files)));
}

// Starts a document on each port, and notes what that adds.
void StartAll(const RunningMonitor& monitor, const std::vector<HANDLE>& ports, Pairs& pairs)
{
    const auto count = static_cast<int>(ports.size());
    const double threads = Has("Threads");
    const double files = OpenFiles();
    const double memory = Has("VmRSS");
    AtOnce(count, [&](int i) { monitor.StartDocument(ports[static_cast<std::size_t>(i)]); });
    pairs.Note("threads per busy port", (Has("Threads") - threads) / count);
    pairs.Note("files per busy port", (OpenFiles() - files) / count);
    pairs.Note("KiB per busy port", (Has("VmRSS") - memory) / count);
}

bool AddPorts(int count)
{
    const Row row = {"ports printing at once: " + std::to_string(count), "as many bare connections",
                     Row::RateAtLeast, 0.9, 41};
    return AddRow(row, [count](Pairs& pairs) {
        const RunningMonitor monitor(count);
        const std::vector<BareConnection> bare(static_cast<std::size_t>(count));
        std::vector<HANDLE> ports;
        for (int i = 0; i < count; ++i)
            ports.push_back(monitor.Open(i));
        StartAll(monitor, ports, pairs);
        std::vector<BYTE> buffer(64 * kKiB, 'x');
        const auto all = [&](auto send) {
            LetPeerCatchUp();
            return AtOnce(count, [&](int number) {
                (void)Timed(256 * kMiB / (64 * kKiB) / count,
                            [&] { send(static_cast<std::size_t>(number)); });
            });
        };
        pairs.Run([&] { return all([&](std::size_t i) { monitor.Write(ports[i], buffer); }); },
                  [&] { return all([&](std::size_t i) { bare[i].Send(buffer.data(), buffer.size()); }); });
        AtOnce(count, [&](int i) { monitor.EndDocument(ports[static_cast<std::size_t>(i)]); });
    });
}

[[maybe_unused]] const bool added = AddBuffers("gWritePort, 4 KiB", 4 * kKiB, 0.95) &&
                                    AddBuffers("gWritePort, 64 KiB", 64 * kKiB, 0.99) &&
                                    AddBuffers("gWritePort, 1 MiB", kMiB, 0.99) && AddPorts(1) &&
                                    AddPorts(8) && AddPorts(64) && AddPorts(256);

}  // namespace
