#pragma once

// What the log file's access needs: one SID, one access list, one descriptor.

#include "win32_types.h"

extern "C" {

using PSID = void*;

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};
struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;
using PSECURITY_DESCRIPTOR = void*;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

enum ACCESS_MODE { NOT_USED_ACCESS = 0, GRANT_ACCESS = 1, SET_ACCESS = 2 };
enum TRUSTEE_FORM { TRUSTEE_IS_SID = 0, TRUSTEE_IS_NAME = 1 };
enum TRUSTEE_TYPE { TRUSTEE_IS_UNKNOWN = 0, TRUSTEE_IS_WELL_KNOWN_GROUP = 5 };
enum MULTIPLE_TRUSTEE_OPERATION { NO_MULTIPLE_TRUSTEE = 0 };

struct TRUSTEE_W {
    TRUSTEE_W* pMultipleTrustee;
    MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
    TRUSTEE_FORM TrusteeForm;
    TRUSTEE_TYPE TrusteeType;
    LPWSTR ptstrName;  // the SID itself for TRUSTEE_IS_SID
};
struct EXPLICIT_ACCESS_W {
    DWORD grfAccessPermissions;
    ACCESS_MODE grfAccessMode;
    DWORD grfInheritance;
    TRUSTEE_W Trustee;
};
using EXPLICIT_ACCESSW = EXPLICIT_ACCESS_W;

constexpr DWORD NO_INHERITANCE = 0;
constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
constexpr std::size_t SECURITY_DESCRIPTOR_MIN_LENGTH = 40;
constexpr UINT LPTR = 0x40;

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE subAuthorityCount,
                              DWORD subAuthority0, DWORD subAuthority1, DWORD subAuthority2,
                              DWORD subAuthority3, DWORD subAuthority4, DWORD subAuthority5,
                              DWORD subAuthority6, DWORD subAuthority7, PSID* sid);
PVOID FreeSid(PSID sid);
// Makes an access list of the entries given; `oldAcl` must be null. The caller frees it with LocalFree.
DWORD SetEntriesInAclW(ULONG entryCount, EXPLICIT_ACCESSW* entries, PACL oldAcl, PACL* newAcl);
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL daclPresent, PACL dacl,
                               BOOL daclDefaulted);
HLOCAL LocalAlloc(UINT flags, std::size_t size);
HLOCAL LocalFree(HLOCAL memory);

}  // extern "C"
