#pragma once

#include <string>

#include "farlink/log/newest_lines.h"

namespace farlink {

// A log file by its name. It may be missing, come later, or be replaced by another one.
class LogFileBytes : public LogBytes {
public:
    explicit LogFileBytes(std::string name) : path(std::move(name)) {}
    ~LogFileBytes() override;
    LogFileBytes(const LogFileBytes&) = delete;
    LogFileBytes& operator=(const LogFileBytes&) = delete;

    bool Exists();
    // The file of this name as it is now; what is read next is of this file. Throws Failure when it
    // can't be opened.
    std::uint64_t Size() override;
    std::string Read(std::uint64_t from, std::uint64_t to) override;

private:
    void Open();

    const std::string path;
    int file = -1;
};

}  // namespace farlink
