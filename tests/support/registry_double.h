#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/platform.h"

// The callbacks of MONITORREG that the monitor uses.
enum class Registry { CreateKey, OpenKey, CloseKey, DeleteKey, EnumKey, SetValue, QueryValue };

struct RegistryCall {
    Registry callback;
    std::string key;   // the path it worked on, from the root: "Ports", "Ports/Card 1"
    std::string name;  // of the subkey or value
    DWORD threadId;
};

// The spooler's registry in memory, behind the callbacks of MONITORREG. Names of keys and values ignore case,
// subkeys are listed by name, errors are the platform's words: 2 for what is missing, 5 for a key with
// subkeys, 6 for a closed handle, 234 for a buffer too small (left untouched, with the size needed), 259
// at the end of a list. It outlives monitors, so that a restart finds what was stored. Any thread.
class RegistryDouble {
public:
    RegistryDouble();
    ~RegistryDouble();

    // What a spooler hands the monitor, and its parts: the table, the root's handle, and the handle that
    // every callback must be given.
    MONITORINIT Init();
    MONITORREG* Callbacks() { return &callbacks; }
    HKEYMONITOR Root() { return rootHandle; }
    HANDLE SpoolerHandle() { return this; }

    // --- content; keys are named by their path ("Ports/Card 1") and made when missing ---

    void MakeKey(const std::string& path)
    {
        Locked([&] { Make(path); });
    }
    void SetDword(const std::string& path, const std::string& name, DWORD value);
    void SetText(const std::string& path, const std::string& name, const WideString& value);
    void SetBytes(const std::string& path, const std::string& name, const std::vector<BYTE>& bytes);
    // A sound entry for a port.
    void AddPort(const std::string& name, const WideString& server, DWORD number);

    bool HasKey(const std::string& path) const
    {
        return Locked([&] { return Find(path) != nullptr; });
    }
    std::vector<std::string> Subkeys(const std::string& path) const;
    std::optional<DWORD> Dword(const std::string& path, const std::string& name) const;
    // The value without its NUL; nothing when it is missing or stored without one.
    std::optional<WideString> Text(const std::string& path, const std::string& name) const;

    // --- faults ---

    // That callback fails with the error, after letting `skip` calls through, `times` times.
    void Fail(Registry callback, LONG error, int skip = 0, int times = 1)
    {
        Locked([&] { failures[callback] = {error, skip, times}; });
    }
    void StopFailing()
    {
        Locked([&] { failures.clear(); });
    }
    // Runs at the start of such calls, on the monitor's thread and without any lock of the double held.
    void Before(Registry callback, const std::function<void()>& hook)
    {
        Locked([&] { hooks[callback] = hook; });
    }

    // --- the record ---

    std::vector<RegistryCall> Calls() const
    {
        return Locked([&] { return calls; });
    }
    void ForgetCalls()
    {
        Locked([&] { calls.clear(); });
    }
    int OpenKeys() const  // not counting the root
    {
        return Locked([&] { return static_cast<int>(handles.size()) - 1; });
    }
    // What no monitor may do: a use of a closed key, a closed root ... Empty when all is well.
    std::vector<std::string> Faults() const
    {
        return Locked([&] { return faults; });
    }

private:
    struct IgnoringCase {
        bool operator()(const std::string& left, const std::string& right) const;
    };
    struct Value {
        DWORD type;
        std::vector<BYTE> bytes;
    };
    struct Key {
        std::string path;
        std::string name;
        std::vector<std::shared_ptr<Key>> subkeys;  // by name
        std::map<std::string, Value, IgnoringCase> values;
    };
    struct Failure {
        LONG error = 0;
        int skip = 0;
        int times = 0;
    };
    friend struct RegistryCallbacks;

    using SubkeyPlace = std::vector<std::shared_ptr<Key>>::iterator;
    static SubkeyPlace PlaceOf(Key& parent, const std::string& name);
    static std::shared_ptr<Key> Subkey(Key& parent, const std::string& name);
    static std::shared_ptr<Key> MakeSubkey(Key& parent, const std::string& name);
    std::shared_ptr<Key> Walk(const std::string& path,
                              std::shared_ptr<Key> (*step)(Key& parent, const std::string& name)) const;
    std::shared_ptr<Key> Find(const std::string& path) const { return Walk(path, Subkey); }
    std::shared_ptr<Key> Make(const std::string& path) { return Walk(path, MakeSubkey); }
    void Set(const std::string& path, const std::string& name, DWORD type, const void* data,
             std::size_t size);
    HKEYMONITOR NewHandle(std::shared_ptr<Key> key);

    template <class Work>
    std::invoke_result_t<Work> Locked(Work work) const
    {
        const std::lock_guard held(lock);
        return work();
    }
    void RunHook(Registry callback);
    // Records the call; 0 or the error with which it has to end. The lock is held.
    LONG Begin(Registry callback, HKEYMONITOR handle, LPCWSTR name);

    mutable std::mutex lock;
    MONITORREG callbacks;
    std::shared_ptr<Key> root;
    HKEYMONITOR rootHandle;
    std::map<HKEYMONITOR, std::shared_ptr<Key>> handles;
    std::uintptr_t handlesMade = 0;
    std::map<Registry, Failure> failures;
    std::map<Registry, std::function<void()>> hooks;
    std::vector<RegistryCall> calls;
    std::vector<std::string> faults;
};
