#pragma once

#include <cstdint>
#include <string>

namespace spooler {

// One process at a time runs the jobs of a port. The right to it is a lock on one byte of a file that
// all processes share, at the port's number, bound to this object's own open file: the kernel lets go
// of it when the process dies, however it dies. Not inherited by a program that is started, but by a
// forked child that keeps the file open.
class PortLock {
public:
    // Opens the file. Throws SpoolerError.
    PortLock(const std::string& lockFile, std::int64_t portNumber);
    ~PortLock();
    PortLock(const PortLock&) = delete;
    PortLock& operator=(const PortLock&) = delete;

    // Doesn't wait. False while another holder has it, in this process or another.
    bool TryTake();
    void Release();

private:
    int file;
    std::int64_t port;
};

}  // namespace spooler
