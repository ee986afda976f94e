#include "spooler/record_writer.h"

#include <cstring>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

std::size_t BytesOf(const WideString& text)
{
    return (text.size() + 1) * sizeof(WCHAR);
}

}  // namespace

std::size_t RecordWriter::BytesNeeded() const
{
    std::size_t sum = 0;
    for (const Entry& entry : entries) {
        sum += entry.fixed.size();
        for (const Text& text : entry.texts)
            sum += BytesOf(text.text);
    }
    return sum;
}

void RecordWriter::Write(LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) const
{
    const std::size_t sum = BytesNeeded();
    *needed = static_cast<DWORD>(sum);
    if (sum > size)
        Throw(ERROR_INSUFFICIENT_BUFFER, "The buffer is too small for the answer.");
    if (sum != 0 && buffer == nullptr)
        Throw(ERROR_INVALID_PARAMETER, "There is no buffer for the answer.");
    BYTE* record = buffer;
    BYTE* stringEnd = buffer + size;
    for (const Entry& entry : entries) {
        std::memcpy(record, entry.fixed.data(), entry.fixed.size());
        for (const Text& text : entry.texts) {
            stringEnd -= BytesOf(text.text);
            std::memcpy(stringEnd, text.text.c_str(), BytesOf(text.text));
            std::memcpy(record + text.offset, &stringEnd, sizeof(stringEnd));
        }
        record += entry.fixed.size();
    }
    if (returned != nullptr)
        *returned = static_cast<DWORD>(entries.size());
}

}  // namespace spooler
