#pragma once

#include "printserver/wire.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace printserver {

// What one data connection delivered. Whole is what ended in order while its command connection stood; all
// else is kept aside as broken, so that nobody takes half a card for a card.
struct Document {
    std::string name;            // "document-0001.bin"; broken: "document-0001.broken"
    std::filesystem::path path;  // empty when the store keeps documents in memory
    std::uint64_t size = 0;
    bool whole = false;
    Bytes bytes;  // filled only by a store in memory
};

class DocumentStore;

// One document on its way in, used by the thread of its data connection. A document that nobody completed is
// broken.
class DocumentWriter {
public:
    DocumentWriter(DocumentStore& owner, std::string stem);
    ~DocumentWriter();
    DocumentWriter(const DocumentWriter&) = delete;
    DocumentWriter& operator=(const DocumentWriter&) = delete;

    // Both throw std::runtime_error when the disk does not take the bytes.
    void Append(std::span<const std::uint8_t> bytes);
    Document Complete();

    Document Break() noexcept;

private:
    Document Settle(bool whole);

    DocumentStore& store;
    std::string stem;
    std::filesystem::path temporary;  // the file has this name until its fate is known
    std::ofstream file;
    Document document;
    bool settled = false;
};

// Numbers documents and remembers them; safe for many threads. With a folder the bytes go to files, numbered
// on from what an earlier run left there; without one they stay in memory.
class DocumentStore {
public:
    // Creates the folder. Throws std::filesystem::filesystem_error.
    DocumentStore(std::filesystem::path folder, bool remember);

    std::unique_ptr<DocumentWriter> Begin();  // throws std::runtime_error
    std::vector<Document> Documents() const;  // settled ones, in the order in which they ended

private:
    friend class DocumentWriter;
    void Remember(const Document& document);

    const std::filesystem::path folder;
    const bool remember;
    mutable std::mutex lock;
    unsigned lastNumber = 0;
    std::vector<Document> documents;
};

}  // namespace printserver
