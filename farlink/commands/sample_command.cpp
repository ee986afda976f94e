#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "farlink/commands.h"
#include "farlink/commands/card_drawing.h"
#include "farlink/file_path.h"
#include "farlink/sizes.h"

namespace farlink {

namespace {

struct SampleOptions {
    std::string file;
    int cards = 2;
};

void Sample(const SampleOptions& options)
{
    std::ofstream file(PathOf(options.file), std::ios::binary);
    std::size_t size = 0;
    for (int card = 1; file && card <= options.cards; ++card) {
        const std::string page = DrawCard(card);
        size += page.size();
        file << page;
    }
    file.close();
    if (!file)
        throw Failure("'" + options.file + "' can't be written: " + std::strerror(errno));
    PrintLine(options.file + ": " + std::to_string(options.cards) + " cards, " + SizeText(size));
}

}  // namespace

void AddSampleCommand(CLI::App& farlink)
{
    auto options = std::make_shared<SampleOptions>();
    CLI::App* sample =
        farlink.add_subcommand("sample", "Write a print file with made-up cards, for trying things out");
    sample->add_option("FILE", options->file, "The file to write, in the PPM image format")->required();
    sample->add_option("--cards", options->cards, "How many cards, about 2 MB each")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000))
        ->type_name("N");
    AddExamples(*sample, "farlink sample cards.ppm --cards 3");
    sample->callback([options] { Sample(*options); });
}

}  // namespace farlink
