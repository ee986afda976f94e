#pragma once

#include "platform/platform.h"
#include "simulate/checks.h"

class World;

// The monitor under test, behind its one export: its life, and the calls that no document stands behind.
class Monitor {
public:
    explicit Monitor(World& its) : world(its) {}

    // The library is attached and the monitor begins. Not while one is there.
    void Begin();
    // The monitor ends, and the library is detached.
    void End();

    DWORD AddPort(const WideString& name, const WideString& server, WORD number);
    DWORD DeletePort(const WideString& name);
    DWORD SetKeepAlive(const WideString& name, WORD period, WORD timeout);
    HANDLE OpenPort(const WideString& name);
    void EnumeratePorts();
    BOOL EnumerateInto(DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned);
    const MONITOR2& Table() const { return *table; }

private:
    DWORD Command(LPCWSTR object, ACCESS_MASK access, LPCWSTR command, const void* input, std::size_t size);

    World& world;
    MONITOR2* table = nullptr;
    HANDLE handle = nullptr;
};
