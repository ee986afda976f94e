#include "spooler/printer_handle.h"

#include <unistd.h>

#include "platform/posix/utf.h"
#include "spooler/account.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

WideString MachineName()
{
    char name[256] = {};
    (void)gethostname(name, sizeof(name) - 1);
    return TEXT("\\\\") + ToUtf16(name);
}

}  // namespace

IncomingDocument::IncomingDocument(std::shared_ptr<Instance> owner, const Printer& printer,
                                   const WideString& name)
    : spooler(std::move(owner))
{
    const auto makeDocument = [this](DWORD id) {
        writer = std::make_unique<DocumentWriter>(spooler->folder.DocumentPath(id));
    };
    jobId = spooler->jobs->Create(printer, name, ToUtf16(CurrentAccount().name), MachineName(), makeDocument);
}

IncomingDocument::~IncomingDocument()
{
    if (accepted)
        return;
    // First the bytes, which may be what fills the disk.
    writer.reset();
    RemoveDocument(spooler->folder.DocumentPath(jobId));
    try {
        spooler->jobs->Forget(jobId);
    } catch (const SpoolerError&) {
        // The next start finds no document and forgets the job.
    }
}

void IncomingDocument::Accept()
{
    writer->Finish();
    accepted = spooler->jobs->Accept(jobId, writer->Size());
    if (!accepted)
        Throw(ERROR_PRINT_CANCELLED, "The job was deleted before its document was complete.");
}

DWORD PrinterHandle::StartDocument(const std::shared_ptr<Instance>& spooler, const WideString& name)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (document != nullptr)
        Throw(ERROR_INVALID_PRINTER_STATE, "A document is open on this handle already.");
    const std::optional<Printer> printer = spooler->printers->Find(printerName);
    if (!printer)
        Throw(ERROR_INVALID_PRINTER_NAME, "There is no printer \"" + ToUtf8(printerName) + "\".");
    document = std::make_unique<IncomingDocument>(spooler, *printer, name);
    return document->JobId();
}

IncomingDocument& PrinterHandle::Document()
{
    if (document == nullptr)
        Throw(ERROR_SPL_NO_STARTDOC, "No document is open on this handle.");
    return *document;
}

void PrinterHandle::Write(std::span<const BYTE> bytes)
{
    const std::lock_guard<std::mutex> guard(lock);
    try {
        Document().Write(bytes);
    } catch (...) {
        document.reset();
        throw;
    }
}

DWORD PrinterHandle::EndDocument()
{
    const std::lock_guard<std::mutex> guard(lock);
    Document();
    const std::unique_ptr<IncomingDocument> ended = std::move(document);
    ended->Accept();
    return ended->JobId();
}

}  // namespace spooler
