#pragma once

#include <memory>
#include <mutex>

#include "platform/platform.h"
#include "spooler/document_file.h"
#include "spooler/handles.h"
#include "spooler/instance.h"

namespace spooler {

// A document that is being taken in: its job's row and its file. Dropped with both unless it is
// accepted. Throws SpoolerError.
class IncomingDocument {
public:
    IncomingDocument(std::shared_ptr<Instance> owner, const Printer& printer, const WideString& name);
    ~IncomingDocument();
    IncomingDocument(const IncomingDocument&) = delete;
    IncomingDocument& operator=(const IncomingDocument&) = delete;

    DWORD JobId() const { return jobId; }
    void Write(std::span<const BYTE> bytes) { writer->Write(bytes); }
    // Makes the job one that is kept and run. ERROR_PRINT_CANCELLED if it was deleted meanwhile.
    void Accept();

private:
    const std::shared_ptr<Instance> spooler;
    std::unique_ptr<DocumentWriter> writer;
    DWORD jobId = 0;
    bool accepted = false;
};

// What OpenPrinterW gives for a printer, or for the print server itself, whose printer name is empty.
class PrinterHandle : public HandleObject {
public:
    explicit PrinterHandle(WideString printer) : printerName(std::move(printer)) {}

    const WideString& PrinterName() const { return printerName; }
    bool IsServer() const { return printerName.empty(); }

    // One document at a time; the three exclude each other. ERROR_INVALID_PRINTER_STATE for a second
    // one, ERROR_SPL_NO_STARTDOC without one. A failure of Write or EndDocument drops the document.
    DWORD StartDocument(const std::shared_ptr<Instance>& spooler, const WideString& name);
    void Write(std::span<const BYTE> bytes);
    // Gives the job's number.
    DWORD EndDocument();

private:
    IncomingDocument& Document();

    const WideString printerName;
    std::mutex lock;  // document
    std::unique_ptr<IncomingDocument> document;
};

}  // namespace spooler
