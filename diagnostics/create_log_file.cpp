#include "diagnostics/create_log_file.h"

namespace {

// The well-known SID S-1-1-0.
class CEveryone {
public:
    CEveryone()
    {
        SID_IDENTIFIER_AUTHORITY world = {{0, 0, 0, 0, 0, 1}};
        if (AllocateAndInitializeSid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &sid) == FALSE)
            sid = nullptr;
    }
    ~CEveryone()
    {
        if (sid != nullptr)
            FreeSid(sid);
    }
    CEveryone(const CEveryone&) = delete;
    CEveryone& operator=(const CEveryone&) = delete;

    PSID sid = nullptr;
};

// An access list with one entry: everything for one SID.
class CFullAccess {
public:
    explicit CFullAccess(PSID sid)
    {
        EXPLICIT_ACCESSW access{};
        access.grfAccessPermissions = GENERIC_ALL;
        access.grfAccessMode = SET_ACCESS;
        access.grfInheritance = NO_INHERITANCE;
        access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        access.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
        access.Trustee.ptstrName = static_cast<LPWSTR>(sid);
        if (SetEntriesInAclW(1, &access, nullptr, &list) != ERROR_SUCCESS)
            list = nullptr;
    }
    ~CFullAccess() { LocalFree(list); }
    CFullAccess(const CFullAccess&) = delete;
    CFullAccess& operator=(const CFullAccess&) = delete;

    PACL list = nullptr;
};

class CDescriptor {
public:
    explicit CDescriptor(PACL list)
    {
        memory = LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH);
        usable = memory != nullptr &&
                 InitializeSecurityDescriptor(memory, SECURITY_DESCRIPTOR_REVISION) != FALSE &&
                 SetSecurityDescriptorDacl(memory, TRUE, list, FALSE) != FALSE;
    }
    ~CDescriptor() { LocalFree(memory); }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    HLOCAL memory;
    bool usable;
};

}  // namespace

// The first line may be a client's, who may have no right to the folder, and is not to own the file.
HANDLE CreateLogFile(LPCWSTR path)
{
    const CProcessIdentity spooler;
    const CEveryone everyone;
    if (everyone.sid == nullptr)
        return INVALID_HANDLE_VALUE;
    const CFullAccess access(everyone.sid);
    if (access.list == nullptr)
        return INVALID_HANDLE_VALUE;
    const CDescriptor descriptor(access.list);
    if (!descriptor.usable)
        return INVALID_HANDLE_VALUE;
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = descriptor.memory;
    return CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, &attributes, OPEN_ALWAYS, 0, nullptr);
}
