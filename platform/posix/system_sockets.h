#pragma once

// The C library's sockets, behind names of our own: its header and win32_sockets.h can't be included
// together. A failed call leaves a Windows Sockets number as the thread's last error. Interrupted calls
// are taken up again. Any thread.

struct sockaddr;

namespace system_sockets {

// The Windows Sockets number for an errno.
int WsaError(int code);

// An IPv4 stream socket that child processes don't inherit; -1 on failure.
int OpenStream();
bool Connect(int descriptor, const sockaddr* address, int length);
// The number of bytes, or -1. The peer's orderly close is 0, with a last error of 0.
int Send(int descriptor, const char* buffer, int length);
int Receive(int descriptor, char* buffer, int length, bool peek);
// `how` is 0, 1 or 2 on both sides: receiving, sending, both.
bool Shutdown(int descriptor, int how);
bool Close(int descriptor);
bool CountReadable(int descriptor, unsigned* count);
bool SendWouldNotBlock(int descriptor);

}  // namespace system_sockets
