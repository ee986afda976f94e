#pragma once

#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace spooler {

// Fills a caller's buffer the platform's way: fixed-size records from its start, their strings from its
// end. The buffer may be larger than needed and need not be aligned.
class RecordWriter {
public:
    // A record whose string members are given apart; a member that isn't named stays as it is in `record`.
    template <typename Record>
    void Add(const Record& record, std::initializer_list<std::pair<LPWSTR Record::*, WideString>> texts)
    {
        const auto* bytes = reinterpret_cast<const BYTE*>(&record);
        Entry entry;
        entry.fixed.assign(bytes, bytes + sizeof(Record));
        for (const auto& [member, text] : texts) {
            const auto* place = reinterpret_cast<const BYTE*>(&(record.*member));
            entry.texts.push_back({static_cast<std::size_t>(place - bytes), text});
        }
        entries.push_back(std::move(entry));
    }

    // Stores the bytes needed, and on success the count (`returned` may be null). Throws SpoolerError with
    // ERROR_INSUFFICIENT_BUFFER, the buffer and the count untouched, when `size` is too small.
    void Write(LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) const;

private:
    struct Text {
        std::size_t offset;
        WideString text;
    };
    struct Entry {
        std::vector<BYTE> fixed;
        std::vector<Text> texts;
    };

    std::size_t BytesNeeded() const;

    std::vector<Entry> entries;
};

}  // namespace spooler
