#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "farlink/commands.h"
#include "farlink/log/hex_text.h"
#include "farlink/ports/port_failure.h"
#include "farlink/ports/port_lookup.h"
#include "spooler/spooler.h"

namespace farlink {

namespace {

// What a message to the print server can carry, either way.
constexpr std::size_t kMostBytes = std::size_t{16} * 1024 * 1024;

struct QueryOptions {
    std::string destination;
    DWORD id = 0;
    std::string file;
    std::string hex;
    DWORD room = 4096;
    bool raw = false;
};

std::string ReadStream(std::istream& stream)
{
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string ReadFile(const std::string& name)
{
    if (name == "-")
        return ReadStream(std::cin);
    if (std::filesystem::is_directory(name))
        throw Failure("'" + name + "' is a folder");
    std::ifstream file(name, std::ios::binary);
    std::string bytes = ReadStream(file);
    if (!file.is_open() || file.bad())
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    return bytes;
}

std::string InputOf(const QueryOptions& options)
{
    std::string input;
    if (!options.file.empty()) {
        input = ReadFile(options.file);
    } else if (const auto bytes = BytesOfHex(options.hex)) {
        input = *bytes;
    } else {
        throw Failure("'" + options.hex + "' is no row of bytes: two hexadecimal digits each",
                      ExitStatus::Usage);
    }
    if (input.size() > kMostBytes)
        throw Failure("The input is too long: at most 16 MiB go with a query");
    return input;
}

std::string Ask(const WideString& port, DWORD id, const std::string& input, DWORD room)
{
    std::string output(room, '\0');
    DWORD returned = 0;
    if (!QueryPort(port.c_str(), id, input.data(), static_cast<DWORD>(input.size()), output.data(), room,
                   &returned))
        throw PortFailure(port);
    output.resize(returned);
    return output;
}

void Show(const Run& run, const QueryOptions& options, const WideString& port, const std::string& reply)
{
    if (run.json) {
        PrintJson(
            {{"port", ToUtf8(port)}, {"id", options.id}, {"size", reply.size()}, {"hex", HexOf(reply)}});
    } else if (options.raw) {
        PrintText(reply);
    } else if (reply.empty()) {
        PrintLine("The reply has no bytes.");
    } else {
        for (const std::string& line : HexDump(reply))
            PrintLine(line);
    }
}

void Query(const Run& run, const QueryOptions& options)
{
    const std::string input = InputOf(options);
    const WideString port = FindPort(options.destination);
    Show(run, options, port, Ask(port, options.id, input, options.room));
}

}  // namespace

void AddQueryCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<QueryOptions>();
    CLI::App* query =
        farlink.add_subcommand("query", "Ask a printer something, by number, and show its reply");
    AddJsonFlag(*query, run);
    query->add_option("-t,--to", options->destination, "A port or a printer")->required()->type_name("NAME");
    query
        ->add_option(
            "ID", options->id,
            "What is asked, not 0; decimal, or hexadecimal with 0x. The printer's maker has the list")
        ->required()
        ->check(CLI::Range(1U, 0xFFFFFFFFU));
    CLI::Option* file =
        query->add_option("--in", options->file, "Input that goes with it; - is the standard input")
            ->type_name("FILE");
    query->add_option("--hex", options->hex, "The same, as hexadecimal bytes")
        ->type_name("BYTES")
        ->excludes(file);
    query->add_option("--out", options->room, "At most so many bytes of the reply")
        ->capture_default_str()
        ->check(CLI::Range(0U, static_cast<unsigned>(kMostBytes)))
        ->type_name("N");
    query->add_flag("--raw", options->raw, "The reply's bytes as they are");
    AddExamples(*query,
                "farlink query --to front-desk 4660\n"
                "farlink query --to front-desk 0x1234 --hex '01 00' --out 64\n"
                "farlink query --to front-desk 0x1234 --in question.bin --raw > reply.bin");
    query->footer(
        query->get_footer() +
        "\n\nIt is refused while a document prints on the port, and documents wait until it is through.\n"
        "It waits for the reply as long as the print server lives; Ctrl-C ends it.");
    query->callback([&run, options] { Query(run, *options); });
}

}  // namespace farlink
