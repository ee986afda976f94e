#pragma once

namespace posix_layer {

// True between the first WSAStartup and the last WSACleanup.
bool SocketsAreStarted();

}  // namespace posix_layer
