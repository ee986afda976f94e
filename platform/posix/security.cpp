#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/platform.h"
#include "platform/posix/call_switch.h"
#include "platform/posix/file_access.h"

namespace {

constexpr BYTE kSidRevision = 1;
constexpr BYTE kMaxSubAuthorities = 8;  // that AllocateAndInitializeSid takes
constexpr BYTE kAclRevision = 2;
constexpr BYTE kAccessAllowedAce = 0;
constexpr WORD kDaclPresent = 0x0004;
constexpr WORD kDaclDefaulted = 0x0008;

struct Sid {
    BYTE revision;
    BYTE subAuthorityCount;
    SID_IDENTIFIER_AUTHORITY authority;
    DWORD subAuthorities[1];  // in fact as many as the count says
};

// An entry of an access list; its SID follows in place of the last member.
struct AccessAllowedAce {
    BYTE type;
    BYTE flags;
    WORD size;
    DWORD mask;
    DWORD sidStart;
};

struct SecurityDescriptor {
    BYTE revision;
    BYTE padding;
    WORD control;
    PSID owner;
    PSID group;
    PACL sacl;
    PACL dacl;
};
static_assert(sizeof(SecurityDescriptor) == SECURITY_DESCRIPTOR_MIN_LENGTH);

std::size_t SidSize(const Sid& sid)
{
    return offsetof(Sid, subAuthorities) + sid.subAuthorityCount * sizeof(DWORD);
}

std::size_t AceSize(const EXPLICIT_ACCESSW& entry)
{
    return offsetof(AccessAllowedAce, sidStart) +
           SidSize(*reinterpret_cast<const Sid*>(entry.Trustee.ptstrName));
}

bool CanServe(const EXPLICIT_ACCESSW& entry)
{
    const bool grants = entry.grfAccessMode == SET_ACCESS || entry.grfAccessMode == GRANT_ACCESS;
    return grants && entry.grfInheritance == NO_INHERITANCE && entry.Trustee.pMultipleTrustee == nullptr &&
           entry.Trustee.TrusteeForm == TRUSTEE_IS_SID && entry.Trustee.ptstrName != nullptr;
}

void WriteAce(BYTE* place, const EXPLICIT_ACCESSW& entry)
{
    const std::size_t size = AceSize(entry);
    const AccessAllowedAce head{kAccessAllowedAce, 0, static_cast<WORD>(size), entry.grfAccessPermissions, 0};
    std::memcpy(place, &head, offsetof(AccessAllowedAce, sidStart));
    std::memcpy(place + offsetof(AccessAllowedAce, sidStart), entry.Trustee.ptstrName,
                size - offsetof(AccessAllowedAce, sidStart));
}

bool IsEveryone(const BYTE* sid)
{
    constexpr BYTE kEveryone[] = {kSidRevision, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    return std::memcmp(sid, kEveryone, sizeof kEveryone) == 0;
}

// The rights that a list gives to Everyone. The list is one that SetEntriesInAclW has made.
DWORD RightsOfEveryone(const ACL& list)
{
    DWORD rights = 0;
    const BYTE* place = reinterpret_cast<const BYTE*>(&list) + sizeof(ACL);
    for (WORD i = 0; i < list.AceCount; ++i) {
        AccessAllowedAce ace{};
        std::memcpy(&ace, place, sizeof ace);
        if (IsEveryone(place + offsetof(AccessAllowedAce, sidStart)))
            rights |= ace.mask;
        place += ace.size;
    }
    return rights;
}

}  // namespace

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE subAuthorityCount,
                              DWORD subAuthority0, DWORD subAuthority1, DWORD subAuthority2,
                              DWORD subAuthority3, DWORD subAuthority4, DWORD subAuthority5,
                              DWORD subAuthority6, DWORD subAuthority7, PSID* sid)
{
    if (posix_layer::CallFails("AllocateAndInitializeSid"))
        return FALSE;
    if (subAuthorityCount == 0 || subAuthorityCount > kMaxSubAuthorities) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    const DWORD all[kMaxSubAuthorities] = {subAuthority0, subAuthority1, subAuthority2, subAuthority3,
                                           subAuthority4, subAuthority5, subAuthority6, subAuthority7};
    const Sid head{kSidRevision, subAuthorityCount, *authority, {}};
    auto* made = static_cast<BYTE*>(std::malloc(SidSize(head)));
    if (made == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    std::memcpy(made, &head, offsetof(Sid, subAuthorities));
    std::memcpy(made + offsetof(Sid, subAuthorities), all, subAuthorityCount * sizeof(DWORD));
    *sid = made;
    return TRUE;
}

PVOID FreeSid(PSID sid)
{
    posix_layer::CountCall("FreeSid");
    std::free(sid);
    return nullptr;
}

DWORD SetEntriesInAclW(ULONG entryCount, EXPLICIT_ACCESSW* entries, PACL oldAcl, PACL* newAcl)
{
    if (posix_layer::CallFails("SetEntriesInAclW"))
        return GetLastError();
    std::size_t size = sizeof(ACL);
    for (const EXPLICIT_ACCESSW& entry : std::span(entries, entryCount)) {
        if (!CanServe(entry))
            return ERROR_INVALID_PARAMETER;
        size += AceSize(entry);
    }
    if (oldAcl != nullptr || size > 0xFFFF)
        return ERROR_INVALID_PARAMETER;
    auto* made = static_cast<BYTE*>(LocalAlloc(LPTR, size));
    if (made == nullptr)
        return ERROR_NOT_ENOUGH_MEMORY;
    const ACL head{kAclRevision, 0, static_cast<WORD>(size), static_cast<WORD>(entryCount), 0};
    std::memcpy(made, &head, sizeof head);
    BYTE* place = made + sizeof head;
    for (const EXPLICIT_ACCESSW& entry : std::span(entries, entryCount)) {
        WriteAce(place, entry);
        place += AceSize(entry);
    }
    *newAcl = reinterpret_cast<PACL>(made);
    return ERROR_SUCCESS;
}

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (posix_layer::CallFails("InitializeSecurityDescriptor"))
        return FALSE;
    if (revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_UNKNOWN_REVISION);
        return FALSE;
    }
    auto* made = static_cast<SecurityDescriptor*>(descriptor);
    *made = {};
    made->revision = static_cast<BYTE>(revision);
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL daclPresent, PACL dacl,
                               BOOL daclDefaulted)
{
    if (posix_layer::CallFails("SetSecurityDescriptorDacl"))
        return FALSE;
    auto* target = static_cast<SecurityDescriptor*>(descriptor);
    if (target->revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_UNKNOWN_REVISION);
        return FALSE;
    }
    const int present = daclPresent ? kDaclPresent | (daclDefaulted ? kDaclDefaulted : 0) : 0;
    target->control = static_cast<WORD>((target->control & ~(kDaclPresent | kDaclDefaulted)) | present);
    target->dacl = daclPresent ? dacl : nullptr;
    return TRUE;
}

HLOCAL LocalAlloc(UINT flags, std::size_t size)
{
    if (posix_layer::CallFails("LocalAlloc"))
        return nullptr;
    const HLOCAL memory = flags == LPTR ? std::calloc(1, size) : std::malloc(size);
    if (memory == nullptr)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

HLOCAL LocalFree(HLOCAL memory)
{
    posix_layer::CountCall("LocalFree");
    std::free(memory);
    return nullptr;
}

CProcessIdentity::CProcessIdentity() = default;
CProcessIdentity::~CProcessIdentity() = default;

namespace posix_layer {

mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes)
{
    DWORD everyone = 0;
    if (attributes != nullptr && attributes->lpSecurityDescriptor != nullptr) {
        const auto* descriptor = static_cast<const SecurityDescriptor*>(attributes->lpSecurityDescriptor);
        if ((descriptor->control & kDaclPresent) != 0)
            everyone = descriptor->dacl == nullptr ? GENERIC_ALL : RightsOfEveryone(*descriptor->dacl);
    }
    mode_t mode = 0600;
    if ((everyone & (GENERIC_ALL | GENERIC_READ)) != 0)
        mode |= 0444;
    if ((everyone & (GENERIC_ALL | GENERIC_WRITE)) != 0)
        mode |= 0222;
    return mode;
}

}  // namespace posix_layer
