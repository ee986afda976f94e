#include "diagnostics/thread_port_tag.h"

#include <cstring>

#include "diagnostics/format_text.h"

namespace {

constexpr char kNoTag[] = "N/A";

DWORD gThreadTagSlot = TLS_OUT_OF_INDEXES;  // of a thread's CThreadPortTag

void SetTag(CThreadPortTag* tag)
{
    if (gThreadTagSlot != TLS_OUT_OF_INDEXES)
        (void)TlsSetValue(gThreadTagSlot, tag);  // a job is worth more than its tag
}

}  // namespace

CThreadPortTag::CThreadPortTag(LPCWSTR serverName, WORD port) : portNumber(port)
{
    if (serverName == nullptr)
        return;
    std::size_t length = 0;
    for (; length < std::size(server) - 1 && serverName[length] != 0; ++length)
        server[length] = serverName[length];
    server[length] = 0;
    SetTag(this);
}

CThreadPortTag::~CThreadPortTag()
{
    SetTag(nullptr);
}

void GetThreadPortTag(char (&text)[kThreadPortTagSize])
{
    const void* const stored = gThreadTagSlot != TLS_OUT_OF_INDEXES ? TlsGetValue(gThreadTagSlot) : nullptr;
    const auto* const tag = static_cast<const CThreadPortTag*>(stored);
    if (tag == nullptr)
        std::memcpy(text, kNoTag, sizeof(kNoTag));
    else
        FormatText(text, sizeof(text), "%S:%u", {tag->Server(), tag->PortNumber()});
}

void CreateThreadTagSlot()
{
    if (gThreadTagSlot == TLS_OUT_OF_INDEXES)
        gThreadTagSlot = TlsAlloc();
}

void FreeThreadTagSlot()
{
    if (gThreadTagSlot != TLS_OUT_OF_INDEXES)
        TlsFree(gThreadTagSlot);
    gThreadTagSlot = TLS_OUT_OF_INDEXES;
}
