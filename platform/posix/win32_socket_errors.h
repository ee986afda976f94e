#pragma once

// The numbers of Windows Sockets errors, apart from the calls, so that the one file that includes the
// C library's socket header can have them.

constexpr int WSAEINTR = 10004;
constexpr int WSAEBADF = 10009;
constexpr int WSAEACCES = 10013;
constexpr int WSAEFAULT = 10014;
constexpr int WSAEINVAL = 10022;
constexpr int WSAEMFILE = 10024;
constexpr int WSAEWOULDBLOCK = 10035;
constexpr int WSAEALREADY = 10037;
constexpr int WSAENOTSOCK = 10038;
constexpr int WSAEPROTONOSUPPORT = 10043;
constexpr int WSAESOCKTNOSUPPORT = 10044;
constexpr int WSAEOPNOTSUPP = 10045;
constexpr int WSAEAFNOSUPPORT = 10047;
constexpr int WSAEADDRINUSE = 10048;
constexpr int WSAEADDRNOTAVAIL = 10049;
constexpr int WSAENETDOWN = 10050;
constexpr int WSAENETUNREACH = 10051;
constexpr int WSAECONNABORTED = 10053;
constexpr int WSAECONNRESET = 10054;
constexpr int WSAENOBUFS = 10055;
constexpr int WSAEISCONN = 10056;
constexpr int WSAENOTCONN = 10057;
constexpr int WSAESHUTDOWN = 10058;
constexpr int WSAETIMEDOUT = 10060;
constexpr int WSAECONNREFUSED = 10061;
constexpr int WSAEHOSTUNREACH = 10065;
constexpr int WSAVERNOTSUPPORTED = 10092;
constexpr int WSANOTINITIALISED = 10093;
constexpr int WSATYPE_NOT_FOUND = 10109;
constexpr int WSAHOST_NOT_FOUND = 11001;
constexpr int WSATRY_AGAIN = 11002;
constexpr int WSANO_RECOVERY = 11003;
constexpr int WSANO_DATA = 11004;
constexpr int WSA_OPERATION_ABORTED = 995;
constexpr int WSA_NOT_ENOUGH_MEMORY = 8;
