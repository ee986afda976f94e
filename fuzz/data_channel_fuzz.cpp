// What a print server sends on the data channel: the opening, then what is read back. The first byte is the
// size of the segments.

#include "fuzz/attached_library.h"
#include "fuzz/byte_stream.h"
#include "link/data_channel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    AttachLibrary();
    if (size < 1)
        return 0;
    ServeBytes({data + 1, size - 1}, std::size_t{data[0]} + 1);
    CDataChannel channel(TEXT("127.0.0.1"), 9100);
    if (!channel.Open())
        return 0;
    BYTE piece[24];
    DWORD received = 1;
    while (received > 0 && channel.Receive(piece, sizeof piece, &received)) {
        if (received > sizeof piece)
            __builtin_trap();
    }
    return 0;
}
