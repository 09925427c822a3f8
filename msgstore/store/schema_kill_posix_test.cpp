// A process that is killed while it brings a store up to this version: the store is of the one version or of
// the other, and nothing is lost.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/earlier_versions.h"
#include "msgstore/store/store_core.h"
#include "platform/testing/test_directory.h"

namespace quorvane {
namespace {

using testing::AskStore;

constexpr char kManyMessages[] =
    "WITH RECURSIVE n (i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 3009)"
    " INSERT INTO message (id, guid, folder_id, associated, version, created, modified, flags, size, subject)"
    " SELECT i, CAST(printf('%016d', i) AS BLOB), 3, 0, 1, 1, 1, 1, 1, 'Subject ' || i FROM n";
constexpr std::int64_t kAllMessages = 3003;

TEST(SchemaKillTest, AStoreKilledWhileItIsBroughtUpOpensAndHasAllItsMessages)
{
    constexpr int kRounds = 25;
    const test::TestDirectory directory;
    const std::string path = (directory.Path() / "store").string();
    std::mt19937 random(20261123);
    int cutShort = 0;
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(testing::MakeStoreOfVersion1(path, kManyMessages));
        int done[2];
        ASSERT_EQ(pipe(done), 0);
        const pid_t child = fork();
        if (child == 0) {
            std::shared_ptr<StoreCore> core;
            const char result = StoreCore::Open(path, false, core) == S_OK ? 'y' : 'n';
            (void)!write(done[1], &result, 1);
            pause();
            _exit(0);
        }
        usleep(random() % 40000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(done[1]);
        char result = 0;
        if (read(done[0], &result, 1) == 1)
            EXPECT_EQ(result, 'y');
        else
            ++cutShort;
        close(done[0]);

        EXPECT_EQ(AskStore(path, "SELECT count(*) FROM message"), kAllMessages);
        EXPECT_EQ(AskStore(path, "SELECT count(*) FROM message WHERE subject_key IS qv_fold(subject)"),
                  kAllMessages);
        EXPECT_EQ(AskStore(path, "SELECT count(*) FROM pragma_integrity_check WHERE integrity_check <> 'ok'"),
                  0);
    }
    EXPECT_GT(cutShort, 0);
}

}  // namespace
}  // namespace quorvane
