// What a power cut may leave of a file that wasn't synchronised: of the writes between an open and a close
// any ones.
#include <gtest/gtest.h>

#include <random>

#include "platform/cfb/testing/exercise.h"
#include "platform/cfb/testing/interrupted.h"

namespace quorvane::cfb::test {
namespace {

// The writes of an operation, with those of the close behind it.
std::vector<MemoryStore::Change> WritesOf(const FileChange& operation, const Bytes& before)
{
    Session session(Road::kLockBytes, before);
    session.bytes->KeepLog();
    EXPECT_EQ(S_OK, session.Open(kOpen));
    for (const Step& step : operation.steps)
        EXPECT_EQ(S_OK, step.run(session)) << operation.what;
    session.Close();
    return session.bytes->Log();
}

TEST(PowerCutTest, AnySubsetOfTheWritesLeavesElementsOrErrorsAtACostBoundedByTheFilesSize)
{
    const Bytes before = MakeFile(BeforeFileChanges(), nullptr);
    std::mt19937 random(1);
    unsigned subsets = 0;
    for (const FileChange& operation : FileChanges()) {
        const auto writes = WritesOf(operation, before);
        for (unsigned i = 0; i < 100 / kOneOf && !::testing::Test::HasFailure(); ++i, ++subsets) {
            SCOPED_TRACE(operation.what + ", subset " + std::to_string(i));
            MemoryStore left(before);
            const unsigned ofTen = 1 + random() % 9;
            for (const auto& write : writes) {
                if (random() % 10 < ofTen)
                    left.Apply(write);
            }
            const Outcome outcome = ExerciseAll(left.bytes);
            for (const HRESULT hr : {outcome.opened, outcome.copied, outcome.walked})
                EXPECT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << std::hex << hr;
            EXPECT_GT(20 * left.bytes.size() + 500'000, outcome.moved);
        }
    }
    EXPECT_LE(2'000u / kOneOf - FileChanges().size(), subsets);
}

}  // namespace
}  // namespace quorvane::cfb::test
