#pragma once

#include "platform/platform.h"

class CCommandChannelMessage;

// The communication protocol's version, ordered by number: 1.10 lies above 1.9. Aligned so that every
// compiler reads and writes it in one piece.
class alignas(8) CCommProtocolVersion {
public:
    CCommProtocolVersion() = default;
    // Takes what the text gives under "%i.%i"; numbers that it doesn't give are 0.
    explicit CCommProtocolVersion(const char* text) { Scan(text); }

    // Takes the version from the server's reply. An error code of 4 means firmware that gives no version
    // and counts as 1.0; other codes, and other messages, are a failure. Numbers that the reply's text
    // doesn't give stay as they were.
    bool Initialize(const CCommandChannelMessage& reply);

    friend bool operator<(const CCommProtocolVersion& left, const CCommProtocolVersion& right)
    {
        return left.major != right.major ? left.major < right.major : left.minor < right.minor;
    }

    DWORD major = 0;
    DWORD minor = 0;

private:
    void Scan(const char* text);
};

// Above this version the monitor sends keep-alives of its own, and they have an id of their own.
inline CCommProtocolVersion FirstProtocolVersion()
{
    return CCommProtocolVersion("1.0");
}

// From this version on a printer query needs no data channel.
inline CCommProtocolVersion CommandChannelAloneVersion()
{
    return CCommProtocolVersion("1.10");
}
