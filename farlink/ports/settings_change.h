#pragma once

namespace farlink {

// What this thread changes of ports while this stands takes effect together at Commit, and not at all without
// it. The Windows spooler has no such thing: there each change counts at once. Throws Failure.
class SettingsChange {
public:
    SettingsChange();
    ~SettingsChange();
    SettingsChange(const SettingsChange&) = delete;
    SettingsChange& operator=(const SettingsChange&) = delete;
    void Commit();

private:
    bool open = true;
};

}  // namespace farlink
