#pragma once

// The system's calls that the test binary has definitions of its own for, one a line: the build reads this
// list too. In the objects of the monitor and of the tests, a call of X is made to go to switched_X; other
// code in the binary (the compiler's runtime, which sleeps and waits as well) calls the system.
#define SWITCHED_CALLS(X)           \
    X(AllocateAndInitializeSid)     \
    X(ClosePrinter)                 \
    X(CreateEventW)                 \
    X(CreateFileW)                  \
    X(CreateThread)                 \
    X(EnumPortsW)                   \
    X(FreeLibrary)                  \
    X(GetJobW)                      \
    X(GetModuleFileNameW)           \
    X(GetProcAddress)               \
    X(GetTempPathW)                 \
    X(GetTickCount)                 \
    X(GetVersionExW)                \
    X(ImpersonatePrinterClient)     \
    X(InitializeSecurityDescriptor) \
    X(LoadLibraryW)                 \
    X(LocalAlloc)                   \
    X(OpenPrinterW)                 \
    X(OutputDebugStringA)           \
    X(RevertToPrinterSelf)          \
    X(SetEntriesInAclW)             \
    X(SetJobW)                      \
    X(SetSecurityDescriptorDacl)    \
    X(Sleep)                        \
    X(TlsAlloc)                     \
    X(VerifyVersionInfoW)           \
    X(WSACleanup)                   \
    X(WSAStartup)                   \
    X(WaitForSingleObject)          \
    X(WriteFile)                    \
    X(closesocket)                  \
    X(connect)                      \
    X(gethostbyname)                \
    X(ioctlsocket)                  \
    X(recv)                         \
    X(send)                         \
    X(socket)
