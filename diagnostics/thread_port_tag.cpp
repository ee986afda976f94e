#include "diagnostics/thread_port_tag.h"

#include <cstring>
#include <map>
#include <new>

#include "diagnostics/format_text.h"
#include "diagnostics/locks.h"

namespace {

constexpr char kNoTag[] = "N/A";

// Kept as it was given: most tags are never printed.
struct Tag {
    WCHAR server[49];
    WORD portNumber;
};

// On the heap, made and destroyed with the library's attach and detach.
CLock* gThreadTagLock = nullptr;
std::map<DWORD, Tag>* gThreadTags THREAD_ANNOTATION(pt_guarded_by(*gThreadTagLock)) = nullptr;

void CopyTag(char (&tag)[kThreadPortTagSize]) THREAD_ANNOTATION(requires_capability(*gThreadTagLock))
{
    const auto found = gThreadTags->find(GetCurrentThreadId());
    if (found != gThreadTags->end())
        FormatText(tag, sizeof(tag), "%S:%u",
                   {static_cast<const WCHAR*>(found->second.server), found->second.portNumber});
}

}  // namespace

CThreadPortTag::CThreadPortTag(LPCWSTR server, WORD portNumber)
{
    if (server == nullptr || gThreadTagLock == nullptr)
        return;
    CLockScope held(*gThreadTagLock);
    try {
        Tag& tag = (*gThreadTags)[GetCurrentThreadId()];
        const std::size_t length = WideStringView(server).copy(tag.server, std::size(tag.server) - 1);
        tag.server[length] = 0;
        tag.portNumber = portNumber;
    } catch (const std::bad_alloc&) {  // a job is worth more than its tag
        gThreadTags->erase(GetCurrentThreadId());
    }
}

CThreadPortTag::~CThreadPortTag()
{
    if (gThreadTagLock == nullptr)
        return;
    CLockScope held(*gThreadTagLock);
    gThreadTags->erase(GetCurrentThreadId());
}

void GetThreadPortTag(char (&tag)[kThreadPortTagSize], bool mayWait)
{
    std::memcpy(tag, kNoTag, sizeof(kNoTag));
    if (mayWait) {
        CLockScope held(*gThreadTagLock);
        CopyTag(tag);
    } else if (gThreadTagLock->TryEnter()) {
        CopyTag(tag);
        gThreadTagLock->Leave();
    }
}

void CreateThreadTags()
{
    if (gThreadTags != nullptr)
        return;
    gThreadTagLock = new CLock;
    gThreadTags = new std::map<DWORD, Tag>;
}

void DestroyThreadTags() THREAD_ANNOTATION(no_thread_safety_analysis)
{
    delete gThreadTags;
    gThreadTags = nullptr;
    delete gThreadTagLock;
    gThreadTagLock = nullptr;
}
