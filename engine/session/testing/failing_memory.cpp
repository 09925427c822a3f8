#include "engine/session/testing/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

// How many allocations of this thread still succeed before one fails; negative for all.
thread_local long t_allocationsLeft = -1;
thread_local bool t_failed = false;

void* Allocate(std::size_t size) noexcept
{
    if (t_allocationsLeft >= 0 && t_allocationsLeft-- == 0) {
        t_failed = true;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size)
{
    if (void* const memory = Allocate(size))
        return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

namespace quorvane::testing {

FailingAllocation::FailingAllocation(long number) noexcept
{
    t_failed = false;
    t_allocationsLeft = number;
}

FailingAllocation::~FailingAllocation()
{
    t_allocationsLeft = -1;
}

bool FailingAllocation::HasCome() const noexcept
{
    return t_failed;
}

}  // namespace quorvane::testing
