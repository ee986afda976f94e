#include "link/comm_protocol_version.h"

#include <cstdio>
#include <string>

#include "diagnostics/function_trace.h"
#include "link/command_channel_message.h"
#include "link/wire_codes.h"

namespace {

constexpr DWORD kVersionNotSupported = 4;

}  // namespace

void CCommProtocolVersion::Scan(const char* text)
{
    int scannedMajor = static_cast<int>(major);
    int scannedMinor = static_cast<int>(minor);
    (void)std::sscanf(text, "%i.%i", &scannedMajor, &scannedMinor);
    major = static_cast<DWORD>(scannedMajor);
    minor = static_cast<DWORD>(scannedMinor);
}

bool CCommProtocolVersion::Initialize(const CCommandChannelMessage& reply)
{
    CFunctionTrace trace("CCommProtocolVersion::Initialize");
    if (reply.type != COMMAND_TYPE_IOCTL || reply.requestId != IOCTL_KREL_GET_COMM_PROTOCOL_VERSION) {
        trace.Fail(
            "Unexpected message to extract protocol version from. Expected type %i, received type %i; "
            "expected "
            "request id %i, received request id %i.",
            COMMAND_TYPE_IOCTL, reply.type, IOCTL_KREL_GET_COMM_PROTOCOL_VERSION, reply.requestId);
        return false;
    }
    if (reply.replyLengthOrError == 0) {
        Scan(std::string(reinterpret_cast<const char*>(reply.data.get()), reply.length).c_str());
        return true;
    }
    if (reply.replyLengthOrError == kVersionNotSupported) {
        trace.Log(krelpmEventWarning,
                  "Defaulting communication protocol version to 1.0 - consider upgrading printer firmware.");
        Scan("1.0");
        return true;
    }
    trace.Fail("Failed to get protocol version.");
    return false;
}
