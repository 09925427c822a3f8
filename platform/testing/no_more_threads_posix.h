// platform/testing/no_more_threads_posix.h: a time in which the system starts no threads. Off Windows alone.
#ifndef QUORVANE_PLATFORM_TESTING_NO_MORE_THREADS_POSIX_H_
#define QUORVANE_PLATFORM_TESTING_NO_MORE_THREADS_POSIX_H_

#include <gtest/gtest.h>
#include <pthread.h>

namespace quorvane::test {

// While this lives no thread can be started: its stack would need more room than there is.
class NoMoreThreads {
public:
    NoMoreThreads()
    {
        constexpr size_t kMoreThanThereIs = size_t{1} << 47;
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, kMoreThanThereIs);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
    ~NoMoreThreads()
    {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

private:
    pthread_attr_t before_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_NO_MORE_THREADS_POSIX_H_
