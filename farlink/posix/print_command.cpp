#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

#include "farlink/commands.h"
#include "farlink/interrupts.h"
#include "farlink/job_following.h"
#include "farlink/wide_text.h"

namespace farlink {

namespace {

struct PrintOptions {
    std::string destination;
    std::vector<std::string> files;
    DWORD attempts = 10;
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

bool IsStandardInput(const std::string& name)
{
    return name == "-";
}

File Open(const std::string& name)
{
    if (IsStandardInput(name))
        return File(stdin, [](std::FILE*) { return 0; });
    if (std::filesystem::is_directory(name))
        throw Failure("'" + name + "' is a folder; give the files in it");
    File file(std::fopen(name.c_str(), "rb"), std::fclose);
    if (!file)
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    return file;
}

std::string DocumentName(const std::string& file)
{
    return IsStandardInput(file) ? "standard input" : std::filesystem::path(file).filename().string();
}

// A printer may not have a comma in its name, a port from elsewhere may.
WideString PrinterNameFor(WideString port)
{
    std::ranges::replace_if(
        port, [](WCHAR unit) { return unit == u',' || unit == u'\\'; }, u'_');
    return port;
}

// The printer that is meant: the port's first one, which is made when there is none, or else the printer
// of this name.
WideString FindPrinter(const WideString& destination)
{
    const std::vector<PrinterEntry> printers = ListPrinters();
    const std::vector<WideString> ports = ListPorts();
    const auto port =
        std::ranges::find_if(ports, [&](const auto& name) { return SameName(name, destination); });
    if (port == ports.end()) {
        if (std::ranges::any_of(printers, [&](const auto& each) { return SameName(each.name, destination); }))
            return destination;
        throw PlatformFailure("'" + ToUtf8(destination) + "'", ERROR_INVALID_PRINTER_NAME);
    }
    for (const PrinterEntry& printer : printers)
        if (SameName(printer.port, *port))
            return printer.name;

    WideString portName = *port;
    WideString name = PrinterNameFor(*port);
    PRINTER_INFO_2W record{};
    record.pPrinterName = name.data();
    record.pPortName = portName.data();
    const HANDLE made = AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&record));
    if (made == nullptr)
        throw SpoolerFailure();
    ClosePrinter(made);
    return name;
}

void WriteAll(const PrinterHandle& printer, BYTE* bytes, std::size_t size, const std::string& document)
{
    while (size > 0) {
        DWORD written = 0;
        if (!WritePrinter(printer.Get(), bytes, static_cast<DWORD>(size), &written))
            throw SpoolerFailure("'" + document + "' was not accepted");
        bytes += written;
        size -= written;
    }
}

// Hands a document to the spooler. Whatever ends it early lets the handle go, which drops the document.
FollowedJob Spool(const PrinterHandle& printer, const std::string& name)
{
    const std::string document = DocumentName(name);
    const File file = Open(name);
    WideString title = ToUtf16(document);
    DOC_INFO_1W info{title.data(), nullptr, nullptr};
    const DWORD job = StartDocPrinterW(printer.Get(), 1, reinterpret_cast<LPBYTE>(&info));
    if (job == 0)
        throw SpoolerFailure("'" + document + "' was not accepted");
    std::vector<BYTE> buffer(std::size_t{256} * 1024);
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
        if (InterruptAsked() || EndAsked())
            throw Failure("Interrupted before '" + document + "' was accepted; nothing of it is printed",
                          ExitStatus::Deleted);
        WriteAll(printer, buffer.data(), size, document);
    }
    if (std::ferror(file.get()) != 0)
        throw Failure("'" + name + "' can't be read: " + std::strerror(errno));
    if (!EndDocPrinter(printer.Get()))
        throw SpoolerFailure("'" + document + "' was not accepted");
    return {job, document};
}

void Print(Run& run, const PrintOptions& options)
{
    for (const std::string& file : options.files)
        (void)Open(file);
    const WideString name = FindPrinter(ToUtf16(options.destination));

    CatchInterrupts();
    LimitAttempts(options.attempts);

    // A document that isn't accepted ends the command, but those before it are already on their way.
    std::optional<Failure> refused;
    std::vector<FollowedJob> jobs;
    for (const std::string& file : options.files) {
        try {
            const PrinterHandle printer(name);
            jobs.push_back(Spool(printer, file));
        } catch (const Failure& failure) {
            refused = failure;
            break;
        }
    }
    const PrinterHandle server(WideString{});
    run.status = FollowJobs(server, jobs, run.json);
    AwaitOtherJobs(run.json);
    if (refused)
        throw Failure(*refused);
}

}  // namespace

void AddPrintCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<PrintOptions>();
    CLI::App* print =
        farlink.add_subcommand("print", "Print files and follow each to its end at the print server");
    AddJsonFlag(*print, run);
    print->add_option("--to", options->destination, "A port or a printer")->required()->type_name("NAME");
    print->add_option("FILE", options->files, "Card print data, sent as it is; - is the standard input")
        ->required();
    AddAttempts(*print, options->attempts);
    AddExamples(*print,
                "farlink print --to front-desk badge.prn\nfarlink print --to front-desk *.prn --json\n"
                "make-badge | farlink print --to front-desk -");
    print->footer(
        print->get_footer() +
        "\n\nCtrl-C cancels the documents that aren't through; a second Ctrl-C leaves at once, and the rest\n"
        "of the cancelling is done by the next print to the port. SIGTERM leaves them queued:\n"
        "'farlink jobs run' goes on with them.\n\n" +
        kExitStatusHelp);
    print->callback([&run, options] { Print(run, *options); });
}

}  // namespace farlink
