#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "farlink/commands.h"
#include "farlink/file_path.h"
#include "farlink/interrupts.h"
#include "farlink/windows/printer_ports.h"

namespace farlink {

namespace {

constexpr DWORD kPauseMs = 200;

struct PrintOptions {
    std::string destination;
    std::vector<std::string> files;
};

std::ifstream Open(const std::string& name)
{
    std::ifstream file(PathOf(name), std::ios::binary);
    if (!file)
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    return file;
}

// The printer of this name, or the first one on the port of this name.
WideString FindPrinter(const WideString& destination)
{
    const std::vector<PrinterEntry> printers = ListPrinters();
    for (const PrinterEntry& printer : printers)
        if (SameName(printer.name, destination))
            return printer.name;
    for (const PrinterEntry& printer : printers)
        if (PrintsOn(printer, destination))
            return printer.name;
    throw Failure("'" + ToUtf8(destination) +
                  "' is no printer, and no printer is on a port of this name; add a printer to the port "
                  "in the Windows settings");
}

void RequireNoInterrupt(const std::string& document)
{
    if (InterruptAsked() || EndAsked())
        throw Failure("Interrupted before '" + document + "' was accepted; its job is deleted",
                      ExitStatus::Deleted);
}

// A spooler that takes nothing for now is asked again, for as long as the user wants.
void WriteAll(const PrinterHandle& printer, char* bytes, std::size_t size, const std::string& document)
{
    while (size > 0) {
        RequireNoInterrupt(document);
        DWORD written = 0;
        if (!WritePrinter(printer.Get(), bytes, static_cast<DWORD>(size), &written))
            throw SpoolerFailure("'" + document + "' was not accepted");
        if (written == 0)
            Sleep(kPauseMs);
        bytes += written;
        size -= written;
    }
}

// A document that the spooler is given as it is, past the printer's driver. One that wasn't ended is deleted:
// the spooler takes a handle's closing for the end, and would print the part that it has.
class Document {
public:
    Document(const PrinterHandle& on, const std::string& name) : printer(on)
    {
        WideString title = PathOf(name).filename().wstring();
        WideString raw = TEXT("RAW");
        DOC_INFO_1W info{title.data(), nullptr, raw.data()};
        job = StartDocPrinterW(printer.Get(), 1, reinterpret_cast<LPBYTE>(&info));
        if (job == 0)
            throw SpoolerFailure("'" + name + "' was not accepted");
    }
    ~Document()
    {
        if (!ended)
            (void)SetJobW(printer.Get(), job, 0, nullptr, JOB_CONTROL_DELETE);
    }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    DWORD Job() const { return job; }
    bool End()
    {
        ended = EndDocPrinter(printer.Get()) != FALSE;
        return ended;
    }

private:
    const PrinterHandle& printer;
    DWORD job;
    bool ended = false;
};

// Hands a file to the spooler, and gives the job's number. Whatever ends it early drops the document.
DWORD Spool(const WideString& printerName, const std::string& name)
{
    std::ifstream file = Open(name);
    const PrinterHandle printer(printerName);
    Document document(printer, name);
    std::array<char, 65536> buffer{};
    while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0)
        WriteAll(printer, buffer.data(), static_cast<std::size_t>(file.gcount()), name);
    if (file.bad())
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    if (!document.End())
        throw SpoolerFailure("'" + name + "' was not accepted");
    return document.Job();
}

void Print(Run& run, const PrintOptions& options)
{
    for (const std::string& file : options.files)
        (void)Open(file);
    const WideString printer = FindPrinter(ToUtf16(options.destination));
    CatchInterrupts();
    for (const std::string& file : options.files) {
        const DWORD job = Spool(printer, file);
        if (run.json)
            PrintJsonLine({{"job", job}, {"document", file}, {"state", "queued"}, {"done", false}});
        else
            PrintLine("'" + file + "' is job " + std::to_string(job) + " on printer '" + ToUtf8(printer) +
                      "'; the Windows spooler prints it");
    }
    run.status = ExitStatus::Queued;
}

}  // namespace

void AddPrintCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<PrintOptions>();
    CLI::App* print = farlink.add_subcommand("print", "Hand files to the Windows spooler");
    AddJsonFlag(*print, run);
    print->add_option("--to", options->destination, "A printer, or a port that a printer is on")
        ->required()
        ->type_name("NAME");
    print->add_option("FILE", options->files, "Card print data, sent as it is")->required();
    AddExamples(*print, "farlink print --to front-desk badge.prn");
    print->footer(
        print->get_footer() +
        "\n\nThe spooler prints them when the command has ended: its print queue shows how they fare.\n"
        "So the status of a command that did its work is 5, stays queued. Ctrl-C deletes the document that\n"
        "isn't in the queue yet.");
    print->callback([&run, options] { Print(run, *options); });
}

}  // namespace farlink
