#pragma once

#include "platform/platform.h"

// Numbers on the wire are big-endian and unaligned. The callers know that the bytes are there.

inline WORD LoadBig16(const BYTE* bytes)
{
    return static_cast<WORD>((bytes[0] << 8) | bytes[1]);
}

inline DWORD LoadBig32(const BYTE* bytes)
{
    return (static_cast<DWORD>(LoadBig16(bytes)) << 16) | LoadBig16(bytes + 2);
}

inline void StoreBig16(BYTE* bytes, WORD value)
{
    bytes[0] = static_cast<BYTE>(value >> 8);
    bytes[1] = static_cast<BYTE>(value & 0xFF);
}

inline void StoreBig32(BYTE* bytes, DWORD value)
{
    StoreBig16(bytes, static_cast<WORD>(value >> 16));
    StoreBig16(bytes + 2, static_cast<WORD>(value & 0xFFFF));
}
