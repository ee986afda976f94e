#include <cmath>
#include <memory>

#include "farlink/commands.h"
#include "farlink/log/hex_text.h"
#include "farlink/ports/port_failure.h"
#include "farlink/ports/port_lookup.h"
#include "spooler/spooler.h"

namespace farlink {

namespace {

constexpr DWORD kMostRead = DWORD{16} * 1024 * 1024;

struct ReadOptions {
    std::string destination;
    DWORD count = 0;
    double wait = 5;
    bool raw = false;
};

void ReadPrinter(const Run& run, const ReadOptions& options)
{
    const WideString port = FindPort(options.destination);
    std::string bytes(options.count, '\0');
    DWORD returned = 0;
    if (!ReadFromPort(port.c_str(), bytes.data(), options.count,
                      static_cast<DWORD>(std::lround(options.wait * 1000)), &returned))
        throw PortFailure(port);
    bytes.resize(returned);
    if (run.json) {
        PrintJson({{"port", ToUtf8(port)}, {"size", bytes.size()}, {"hex", HexOf(bytes)}});
    } else if (options.raw) {
        PrintText(bytes);
    } else if (bytes.empty()) {
        PrintLine("The printer sent nothing.");
    } else {
        for (const std::string& line : HexDump(bytes))
            PrintLine(line);
    }
}

}  // namespace

void AddReadCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<ReadOptions>();
    CLI::App* read = farlink.add_subcommand("read", "Read back what a printer sends by itself");
    AddJsonFlag(*read, run);
    read->add_option("--to", options->destination, "A port or a printer")->required()->type_name("NAME");
    read->add_option("N", options->count, "At most so many bytes")
        ->required()
        ->check(CLI::Range(1U, kMostRead));
    read->add_option("--wait", options->wait, "Go on until so long nothing has come")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 86400.0))
        ->type_name("S");
    read->add_flag("--raw", options->raw, "The bytes as they are");
    AddExamples(*read,
                "farlink read --to front-desk 64\n"
                "farlink read --to front-desk 4096 --wait 60 --raw > status.bin");
    read->callback([&run, options] { ReadPrinter(run, *options); });
}

}  // namespace farlink
