// tests/support/apartments.h: hosts that live in apartments.
#ifndef QUORVANE_TESTS_SUPPORT_APARTMENTS_H_
#define QUORVANE_TESTS_SUPPORT_APARTMENTS_H_

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "quorvane3/com.h"
#include "tests/support/registered_library.h"
#include "tests/support/test_directory.h"
#include "tests/support/test_host.h"

namespace quorvane::test {

// Keeps the library registered while the tests of a suite run that have apartments.
class RegisteredTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_registered = std::make_unique<RegisteredLibrary>(); }
    static void TearDownTestSuite() { s_registered.reset(); }

private:
    inline static std::unique_ptr<RegisteredLibrary> s_registered;
};

// Waits for a condition in the way of an apartment's thread: calls are answered meanwhile.
inline bool Pumped(const std::function<bool()>& condition)
{
    return Eventually([&] {
        PumpApartmentCalls();
        return condition();
    });
}

// The threads that a host, or another callback, is called on. Any thread may call.
class Callers {
public:
    Callers() = default;
    // Notes those of all events of a host, and answers for it.
    explicit Callers(TestHost& host)
    {
        host.AnswerWith([this](const HostEvent&, bool&) { return Note(); });
    }

    HRESULT Note()
    {
        const std::lock_guard lock(mutex_);
        threads_.insert(std::this_thread::get_id());
        return S_OK;
    }
    std::set<std::thread::id> Threads() const
    {
        const std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    mutable std::mutex mutex_;
    std::set<std::thread::id> threads_;
};

// An apartment's thread that pumps all the time.
class PumpingThread {
public:
    PumpingThread()
        : thread_([this] {
              const ApartmentScope apartment;
              loop_.Run();
          })
    {}
    PumpingThread(const PumpingThread&) = delete;
    PumpingThread& operator=(const PumpingThread&) = delete;
    ~PumpingThread()
    {
        loop_.Stop();
        thread_.join();
    }

    std::thread::id Id() const noexcept { return thread_.get_id(); }

    // Runs a function there, and waits for its end. Throws what it throws.
    void Do(std::function<void()> function)
    {
        const auto task = std::make_shared<std::packaged_task<void()>>(std::move(function));
        Check(loop_.Post([task] { (*task)(); }), "post a function");
        task->get_future().get();
    }

private:
    ApartmentLoop loop_;
    std::thread thread_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_APARTMENTS_H_
