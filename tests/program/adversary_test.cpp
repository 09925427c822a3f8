// Three members, a place between them that nobody can trust, and runs that are killed: whatever happens, the
// members end with the same items, and no text of anybody is lost.
//
// For looks by hand:
//
//   QUORVANE_SEED         another world
//   QUORVANE_STEPS        how many steps
//   QUORVANE_DELETIONS=0  members only edit and add
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>
#include <set>

#include "tests/program/killed_run.h"

namespace quorvane::test {

namespace {

using std::filesystem::path;

unsigned FromEnvironment(const char* name, unsigned otherwise)
{
    const char* const text = std::getenv(name);
    return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class AdversaryTest : public KilledRunTest {
protected:
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "what ends a run in place of a change is this system's";
        KilledRunTest::SetUp();
        MakeMailboxes({kNames.begin(), kNames.end()});
        for (int number = 0; number < 4; ++number)
            Import("alice");
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob", "--with", "carol"});
        RunUntilIdle({kNames.begin(), kNames.end()}, "0.5");
    }
    void TearDown() override
    {
        if (!IsSkipped())
            KilledRunTest::TearDown();
    }

    unsigned Below(unsigned count) { return std::uniform_int_distribution<unsigned>(0, count - 1)(random_); }
    template <class List>
    const auto& OneOf(const List& list)
    {
        return list[Below(static_cast<unsigned>(list.size()))];
    }

    // ----- what members do

    std::string NewText(const std::string& name)
    {
        texts_.push_back(name + "'s text " + std::to_string(texts_.size()));
        return texts_.back();
    }
    void Import(const std::string& name)
    {
        const std::string text = NewText(name);
        const path mail = Path("new.eml");
        std::ofstream(mail, std::ios::binary | std::ios::trunc)
            << "From: " << name << "@example.org\r\nDate: Sun, 22 Nov 2026 10:00:00 +0000\r\nMessage-ID: <"
            << texts_.size() << "@example.org>\r\nSubject: " << text << "\r\n\r\nA mail.\r\n";
        MustRun({"import", Mailbox(name), "Shared", mail.string()});
    }
    void ChangeOne(const std::string& name, bool isDeletion)
    {
        const std::vector<Json> items = Items(name, "Shared");
        if (items.empty())
            return Import(name);
        const Json& item = OneOf(items);
        const std::string entry = item.at("entryId");
        // Whoever changes what he sees may well replace it.
        seen_.insert(item.at("subject").get<std::string>());
        if (isDeletion)
            MustRun({"delete", Mailbox(name), "Shared", entry});
        else
            MustRun({"edit", Mailbox(name), "Shared", entry, "--subject", NewText(name)});
    }
    // One that waits neither for what is late nor for a day without anything to do.
    std::vector<std::string> RunUntil(const std::string& name, const std::string& idleSeconds) const
    {
        return RunOf(name, {"--until-idle", "--idle-seconds", idleSeconds, "--ask-after", "0",
                            "--compare-after", "1"});
    }
    void RunOne(const std::string& name)
    {
        const std::vector<std::string> run = RunUntil(name, "0.1");
        if (Below(3) > 0) {
            const Outcome outcome = Run(run);
            EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        } else if (RunToAKill(run, 1 + Below(kChangesOfARun))) {
            ++kills_;
        }
    }

    // ----- what the place does

    std::vector<path> Files() const
    {
        std::vector<path> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(Exchange()))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        return files;
    }
    void TamperWith(const path& file)
    {
        switch (Below(5)) {
            case 0:
                std::filesystem::remove(file);
                break;
            case 1:
                std::filesystem::resize_file(
                    file, Below(static_cast<unsigned>(std::filesystem::file_size(file)) + 1));
                break;
            case 2:
                Flip(file);
                break;
            case 3:  // comes later, when something else may lie there
                late_.emplace_back(file, Path("late" + std::to_string(late_.size())));
                std::filesystem::rename(file, late_.back().second);
                break;
            default:  // stands where the next would
                if (const path next = file.parent_path() / OneOf(kNextNames); next != file)
                    std::filesystem::copy_file(file, next, std::filesystem::copy_options::overwrite_existing);
        }
        ++tampered_;
    }
    void Flip(const path& file)
    {
        const auto size = static_cast<unsigned>(std::filesystem::file_size(file));
        if (size == 0)
            return;
        std::fstream bytes(file, std::ios::binary | std::ios::in | std::ios::out);
        const unsigned at = Below(size);
        bytes.seekg(at);
        const int byte = bytes.get();
        bytes.seekp(at);
        bytes.put(static_cast<char>(byte ^ 1 << Below(8)));
    }
    void BringLate()
    {
        if (late_.empty())
            return;
        const auto [file, kept] = OneOf(late_);
        std::error_code ignored;
        std::filesystem::copy_file(kept, file, std::filesystem::copy_options::overwrite_existing, ignored);
    }
    // A directory of one of the devices as it stood some time ago.
    void KeepOrPutBackState()
    {
        const path kept = Path("state");
        if (!state_) {
            const std::vector<path> files = Files();
            state_ = OneOf(files);
            while (state_->parent_path() != path(Exchange()))
                state_ = state_->parent_path();
            std::filesystem::copy(*state_, kept, std::filesystem::copy_options::recursive);
            return;
        }
        std::filesystem::remove_all(*state_);
        std::filesystem::rename(kept, *state_);
        state_.reset();
    }

    void Step()
    {
        const unsigned what = Below(100);
        const std::string name = OneOf(kNames);
        if (what < 30)
            ChangeOne(name, false);
        else if (what < 38)
            ChangeOne(name, deletes_);
        else if (what < 42)
            Import(name);
        else if (what < 76)
            RunOne(name);
        else if (what < 92)
            TamperWith(OneOf(Files()));
        else if (what < 96)
            BringLate();
        else
            KeepOrPutBackState();
    }

    // ----- how it has to end

    bool AreEqual() const
    {
        for (const char* other : {"bob", "carol"}) {
            const Outcome compared = Run({"compare", Mailbox("alice"), "Shared", Mailbox(other), "Shared"});
            if (compared.exitCode != 0)
                return false;
        }
        return true;
    }
    void ExpectAllEqual() const
    {
        for (int round = 0; round < kMostRounds && !AreEqual(); ++round) {
            std::vector<Process> runs;
            for (const std::string& name : kNames)
                runs.push_back(Start(RunUntil(name, "0.4")));
            for (Process& run : runs)
                EXPECT_EQ(run.Wait().exitCode, 0);
        }
        ExpectSame("alice", "Shared", "bob", "Shared");
        ExpectSame("alice", "Shared", "carol", "Shared");
    }
    void ExpectNoTextLost() const
    {
        std::set<std::string> there;
        for (const Json& item : Items("alice", "Shared"))
            there.insert(item.at("subject").get<std::string>());
        for (const std::string& text : texts_)
            EXPECT_TRUE(there.contains(text) || seen_.contains(text)) << text << " is lost";
    }

    static constexpr int kMostRounds = 12;
    // Most runs make so many, of files.
    static constexpr unsigned kChangesOfARun = 150;

    const bool deletes_ = FromEnvironment("QUORVANE_DELETIONS", 1) != 0;
    std::mt19937 random_;
    unsigned kills_ = 0, tampered_ = 0;

private:
    inline static const std::vector<std::string> kNames{"alice", "bob", "carol"};
    inline static const std::vector<std::string> kNextNames{
        "00000000000000000007.qvx", "00000000000000000012.qvx", "00000000000000000020.qvx"};

    std::vector<std::string> texts_;
    std::set<std::string> seen_;  // by somebody who changed or deleted what had them
    std::vector<std::pair<path, path>> late_;
    std::optional<path> state_;
};

TEST_F(AdversaryTest, AllEndEqualAndNoTextIsLost)
{
    const unsigned seed = FromEnvironment("QUORVANE_SEED", 20261122);
    const unsigned steps = FromEnvironment("QUORVANE_STEPS", 200);
    SCOPED_TRACE("QUORVANE_SEED=" + std::to_string(seed));
    random_.seed(seed);
    for (unsigned step = 0; step < steps; ++step) {
        Step();
        ASSERT_FALSE(HasFailure()) << "at step " << step;
    }
    EXPECT_GT(kills_, steps / 100);
    EXPECT_GT(tampered_, steps / 20);

    ExpectAllEqual();
    ExpectNoTextLost();
}

}  // namespace

}  // namespace quorvane::test
