#pragma once

#include "simulate/checks.h"

class World;

// A call into the monitor on this thread. It has to come back within its bound, in virtual time; what threads
// were held up and the spooler was slow meanwhile is added.
class Call {
public:
    Call(World& world, const char* function, Document* document, simulated::Micros bound);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    template <class Result>
    Result Gives(Result value)
    {
        result = static_cast<long long>(value);
        return value;
    }

private:
    World& world;
    CallUnderWay underWay;
    simulated::Micros outerBound;
    long long result = -1;
};
