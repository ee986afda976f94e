#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// What every connection of the process reads: these bytes, in segments of at most `segment`, then the peer's
// orderly end. The socket calls are this binary's own, so that an execution costs no system call and runs the
// same way each time; whatever is sent goes nowhere. One thread.
void ServeBytes(std::span<const std::uint8_t> bytes, std::size_t segment);

// How many of them are unread.
std::size_t BytesUnread();
