#include "printserver/document_store.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace printserver {
namespace {

std::string Stem(unsigned number)
{
    char text[32];
    std::snprintf(text, sizeof text, "document-%04u", number);
    return text;
}

// The number in "document-0012.bin" or ".broken" or ".part", or 0 for any other file.
unsigned NumberOf(const std::filesystem::path& file)
{
    unsigned number = 0;
    return std::sscanf(file.filename().string().c_str(), "document-%9u", &number) == 1 ? number : 0;
}

}  // namespace

DocumentWriter::DocumentWriter(DocumentStore& owner, std::string stemOfName)
    : store(owner), stem(std::move(stemOfName))
{
    if (store.folder.empty())
        return;
    temporary = store.folder / (stem + ".part");
    file.open(temporary, std::ios::binary | std::ios::trunc);
    if (!file)
        throw std::runtime_error("Cannot create " + temporary.string());
}

DocumentWriter::~DocumentWriter()
{
    (void)Break();
}

void DocumentWriter::Append(std::span<const std::uint8_t> bytes)
{
    document.size += bytes.size();
    if (temporary.empty()) {
        document.bytes.insert(document.bytes.end(), bytes.begin(), bytes.end());
    } else if (!file.write(reinterpret_cast<const char*>(bytes.data()),
                           static_cast<std::streamsize>(bytes.size()))) {
        throw std::runtime_error("Cannot write " + temporary.string());
    }
}

Document DocumentWriter::Complete()
{
    if (!temporary.empty()) {
        file.close();
        if (!file)
            throw std::runtime_error("Cannot write " + temporary.string());
    }
    return Settle(true);
}

Document DocumentWriter::Break() noexcept
{
    if (settled)
        return document;
    file.close();
    return Settle(false);
}

Document DocumentWriter::Settle(bool whole)
{
    document.name = stem + (whole ? ".bin" : ".broken");
    if (!temporary.empty()) {
        document.path = store.folder / document.name;
        std::error_code failure;
        std::filesystem::rename(temporary, document.path, failure);
        if (failure && whole)
            throw std::runtime_error("Cannot rename " + temporary.string() + ": " + failure.message());
    }
    settled = true;
    document.whole = whole;
    store.Remember(document);
    return document;
}

DocumentStore::DocumentStore(std::filesystem::path where, bool rememberThem)
    : folder(std::move(where)), remember(rememberThem)
{
    if (folder.empty())
        return;
    std::filesystem::create_directories(folder);
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        lastNumber = std::max(lastNumber, NumberOf(entry.path()));
}

std::unique_ptr<DocumentWriter> DocumentStore::Begin()
{
    const std::scoped_lock scope(lock);
    auto writer = std::make_unique<DocumentWriter>(*this, Stem(lastNumber + 1));
    ++lastNumber;
    return writer;
}

std::vector<Document> DocumentStore::Documents() const
{
    const std::scoped_lock scope(lock);
    return documents;
}

void DocumentStore::Remember(const Document& document)
{
    const std::scoped_lock scope(lock);
    if (remember)
        documents.push_back(document);
}

}  // namespace printserver
