// session/testing/failing_memory.h: memory that runs short at a chosen moment.
#ifndef QUORVANE_ENGINE_SESSION_TESTING_FAILING_MEMORY_H_
#define QUORVANE_ENGINE_SESSION_TESTING_FAILING_MEMORY_H_

namespace quorvane::testing {

// While it lives, one allocation of its thread by operator new fails: that of the number, from 0. One at a
// time on a thread.
class FailingAllocation {
public:
    explicit FailingAllocation(long number) noexcept;
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    // Whether there were so many allocations that it failed.
    bool HasCome() const noexcept;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_SESSION_TESTING_FAILING_MEMORY_H_
