#include "tests/support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

constinit thread_local int allocationsLeft = -1;  // until the one that fails; below 0: none fails any more
constinit thread_local int untouched = 0;

bool ThisOneFails()
{
    return untouched == 0 && allocationsLeft >= 0 && --allocationsLeft < 0;
}

void* Allocate(std::size_t size) noexcept
{
    return ThisOneFails() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size)
{
    if (void* memory = Allocate(size))
        return memory;
    throw std::bad_alloc();
}

}  // namespace

FailingNew::FailingNew(int which)
{
    allocationsLeft = which - 1;
}

FailingNew::~FailingNew()
{
    allocationsLeft = -1;
}

bool FailingNew::HasFailed() const
{
    return allocationsLeft < 0;
}

UntouchedNew::UntouchedNew()
{
    ++untouched;
}

UntouchedNew::~UntouchedNew()
{
    --untouched;
}

// All forms that the monitor uses: a checking runtime has its own of each, and they must not be mixed.
void* operator new(std::size_t size)
{
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size)
{
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
