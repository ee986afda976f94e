#pragma once

#include <algorithm>
#include <cstring>

#include "admin/xcv_handler.h"

// The tests that commands have in common, and the copying of records.

// Copies a record from the input. False when the input is absent or too short; more is ignored.
template <class Record>
bool ReadRecord(const krelXcvBuffers& buffers, Record* record)
{
    if (buffers.input == nullptr || buffers.inputSize < sizeof(Record))
        return false;
    std::memcpy(record, buffers.input, sizeof(Record));
    return true;
}

// True when the input is exactly a version word, and of our version.
inline bool IsVersionQuery(const krelXcvBuffers& buffers)
{
    krelXcvVersionWord word;
    return buffers.inputSize == sizeof(word) && ReadRecord(buffers, &word) &&
           word.version == kXcvRecordVersion;
}

inline void StoreNeeded(const krelXcvBuffers& buffers, std::size_t size)
{
    if (buffers.outputNeeded != nullptr)
        *buffers.outputNeeded = static_cast<DWORD>(size);
}

// True when a text field of a record ends inside the field.
template <std::size_t Size>
bool IsTerminated(const WCHAR (&field)[Size])
{
    return std::find(field, field + Size, WCHAR{0}) != field + Size;
}

// Writes a text with its NUL to an address that may be odd; what lies behind stays.
inline void WriteText(BYTE* target, WideStringView text)
{
    const WCHAR end = 0;
    std::memcpy(target, text.data(), text.size() * sizeof(WCHAR));
    std::memcpy(target + text.size() * sizeof(WCHAR), &end, sizeof(end));
}
