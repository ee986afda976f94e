#include "diagnostics/thread_port_tag.h"

#include <cstring>
#include <map>
#include <new>
#include <string>

#include "diagnostics/format_text.h"
#include "diagnostics/locks.h"

namespace {

constexpr char kNoTag[] = "N/A";

// On the heap, made and destroyed with the library's attach and detach.
CLock* gThreadTagLock = nullptr;
std::map<DWORD, std::string>* gThreadTags THREAD_ANNOTATION(pt_guarded_by(*gThreadTagLock)) = nullptr;

void CopyTag(char (&tag)[kThreadPortTagSize]) THREAD_ANNOTATION(requires_capability(*gThreadTagLock))
{
    const auto found = gThreadTags->find(GetCurrentThreadId());
    if (found != gThreadTags->end())
        FormatText(tag, sizeof(tag), "%s", {found->second.c_str()});
}

}  // namespace

CThreadPortTag::CThreadPortTag(LPCWSTR server, WORD portNumber)
{
    if (server == nullptr || gThreadTagLock == nullptr)
        return;
    char tag[kThreadPortTagSize];
    FormatText(tag, sizeof(tag), "%S:%u", {server, portNumber});
    CLockScope held(*gThreadTagLock);
    try {
        (*gThreadTags)[GetCurrentThreadId()] = tag;
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
    gThreadTags = new std::map<DWORD, std::string>;
}

void DestroyThreadTags() THREAD_ANNOTATION(no_thread_safety_analysis)
{
    delete gThreadTags;
    gThreadTags = nullptr;
    delete gThreadTagLock;
    gThreadTagLock = nullptr;
}
