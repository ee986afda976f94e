#pragma once

// Memory that runs out at a chosen moment. The test binary's operator new is its own: it can fail on the
// thread that asks for it, in whatever code that thread runs meanwhile.

// While it stands, allocation number `which` of this thread, counted from 1, throws std::bad_alloc (or gives
// null where that was asked for); all others succeed. One at a time per thread.
class FailingNew {
public:
    explicit FailingNew(int which);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    // False while the thread has made fewer allocations.
    bool HasFailed() const;
};

// Allocations of this thread neither fail nor count meanwhile: for the doubles, whose own memory is not what
// a test is about.
class UntouchedNew {
public:
    UntouchedNew();
    ~UntouchedNew();
    UntouchedNew(const UntouchedNew&) = delete;
    UntouchedNew& operator=(const UntouchedNew&) = delete;
};
