// platform/cfb/testing/interrupted.h: for tests: what must be in a file whose writer was killed.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_
#define QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_

#include <gtest/gtest.h>

#include "platform/cfb/testing/series.h"

namespace quorvane::cfb::test {

// A file that the steps made, and what is in it, if `tree` isn't null.
inline Bytes MakeFile(const std::vector<Step>& steps, Tree* tree)
{
    Session session(Road::kLockBytes);
    EXPECT_EQ(S_OK, session.Create(Layout::kVersion3));
    for (const Step& step : steps) {
        EXPECT_EQ(S_OK, step.run(session)) << step.what;
        if (tree)
            step.apply(*tree);
    }
    session.Close();
    return session.Content();
}

// Expects of a file whose writer was killed in a change what that promises.
inline void ExpectBetween(const Tree& found, const Tree& before, const Tree& after,
                          const FileChange& operation)
{
    EXPECT_TRUE(!operation.asOne || found == before || found == after) << operation.what;
    for (const auto& [path, content] : before) {
        const auto still = after.find(path);
        if (still == after.end() || still->second != content)
            continue;
        const auto there = found.find(path);
        EXPECT_TRUE(there != found.end() && there->second == content) << path << ": " << operation.what;
    }
    for (const auto& [path, content] : found)
        EXPECT_TRUE(before.contains(path) || after.contains(path)) << path << " came back";
}

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_
