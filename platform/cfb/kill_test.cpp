// A process killed between any two writes: what was complete is there when the file is opened again.
#include <gtest/gtest.h>

#include <functional>

#include "platform/cfb/compound_file.h"
#include "platform/cfb/testing/interrupted.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

// A compound file on a store that logs, and what must be in it after each step.
class Recording {
public:
    Recording()
    {
        store.keepLog = true;
        file = std::make_unique<CompoundFile>(store, memory);
        EXPECT_EQ(S_OK, file->Format(Layout::kVersion3));
        EXPECT_EQ(S_OK, file->OpenRoot(&root));
        Mark();
    }

    // A new storage, which lands when it is closed.
    OpenElementPtr Storage(OpenElement& parent, const std::string& name)
    {
        OpenElementPtr child;
        EXPECT_EQ(S_OK, file->CreateChild(parent, Named(name), EntryType::kStorage, true, &child));
        return child;
    }
    void Close(OpenElement& element)
    {
        file->Close(element);
        EXPECT_EQ(S_OK, file->TakeLandingFailure());
    }

    void Stream(OpenElement& parent, const std::string& name, const Bytes& content)
    {
        OpenElementPtr child;
        ASSERT_EQ(S_OK, file->CreateChild(parent, Named(name), EntryType::kStream, true, &child));
        std::size_t written = 0;
        ASSERT_EQ(S_OK, file->WriteStream(*child, 0, content.data(), content.size(), &written));
        file->Close(*child);
    }

    void Set(const std::string& path, std::optional<Bytes> content) { expected[path] = std::move(content); }
    // Forgets an element and all below it.
    void Forget(const std::string& path)
    {
        std::erase_if(expected, [&](const auto& one) {
            return one.first == path || one.first.compare(0, path.size() + 1, path + "/") == 0;
        });
    }

    // A step is complete: everything expected is in the store.
    void Mark() { marks.push_back({store.log.size(), expected}); }

    // What comes between two marks is there as a whole or not at all.
    bool asOne = false;

    struct Point {
        std::size_t changes;
        Tree expected;
    };

    MemoryStore store;
    Arena memory;
    std::unique_ptr<CompoundFile> file;
    OpenElementPtr root;
    Tree expected;
    std::vector<Point> marks;
};

// Opens the state after each prefix of the log. What two marks around it agree on must be there.
// every: of so many changes one is looked at.
void CheckEveryPrefix(Recording& recording, std::size_t every = 1)
{
    every *= kOneOf;
    MemoryStore state;
    std::size_t done = 0;
    std::size_t opened = 0;
    for (std::size_t mark = 1; mark < recording.marks.size(); ++mark) {
        const Tree& before = recording.marks[mark - 1].expected;
        const Tree& after = recording.marks[mark].expected;
        for (; done < recording.marks[mark].changes; ++done) {
            state.Apply(recording.store.log[done]);
            if (done < recording.marks[0].changes || done % every != 0)
                continue;
            Tree found;
            ComPtr<IStorage> root;
            const auto bytes = LockBytesWith(state.bytes);
            ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()))
                << "after change " << done;
            ASSERT_EQ(S_OK, Walk(*root, "", &found)) << "after change " << done;
            for (const auto& [path, content] : before) {
                const auto still = after.find(path);
                if (still == after.end() || still->second != content)
                    continue;
                ASSERT_TRUE(found.contains(path)) << path << " after change " << done << " of mark " << mark;
                ASSERT_EQ(content, found[path]) << path << " after change " << done;
            }
            for (const auto& [path, content] : found)
                ASSERT_TRUE(before.contains(path) || after.contains(path)) << path << " came back";
            ASSERT_TRUE(!recording.asOne || found == before || found == after)
                << "after change " << done << " of mark " << mark;
            const Findings findings = Examine(state.bytes);
            // A file that grows is longer than its FAT says for the time of one write.
            ASSERT_TRUE(findings.depth <= 64);
            ++opened;
        }
    }
    EXPECT_GT(opened, 20u / kOneOf);
    EXPECT_EQ(state.bytes, recording.store.bytes);
    const Findings end = Examine(state.bytes);
    EXPECT_TRUE(end.faults.empty()) << Text(end.faults);
    EXPECT_TRUE(end.leaks.empty()) << Text(end.leaks);
}

TEST(KillTest, ElementsMadeInAnyOrderOfNamesStay)
{
    Recording recording;
    for (unsigned i = 0; i < 150; ++i) {
        const std::string name = "e" + std::to_string(i * 7919 % 150);
        const Bytes content = Pattern(i * 37 % 700, i);
        recording.Stream(*recording.root, name, content);
        recording.Set(name, content);
        recording.Mark();
    }
    CheckEveryPrefix(recording);
}

TEST(KillTest, ElementsMadeInOrderStay)
{
    Recording recording;
    recording.Close(*recording.Storage(*recording.root, "s"));
    OpenElementPtr storage;
    ASSERT_EQ(S_OK, recording.file->OpenChild(*recording.root, Named("s"), EntryType::kStorage, &storage));
    recording.Set("s", std::nullopt);
    recording.Mark();
    for (unsigned i = 0; i < 120; ++i) {
        const std::string name = std::to_string(1000 + i);
        recording.Stream(*storage, name, Pattern(90, i));
        recording.Set("s/" + name, Pattern(90, i));
        recording.Mark();
    }
    CheckEveryPrefix(recording);
}

TEST(KillTest, DestroyingOneLeavesTheOthers)
{
    Recording recording;
    for (unsigned i = 0; i < 80; ++i) {
        recording.Stream(*recording.root, "e" + std::to_string(i), Pattern(100 + i, i));
        recording.Set("e" + std::to_string(i), Pattern(100 + i, i));
    }
    recording.marks.clear();
    recording.Mark();
    for (unsigned i = 0; i < 80; ++i) {
        const std::string name = "e" + std::to_string(i * 31 % 80);
        ASSERT_EQ(S_OK, recording.file->Destroy(*recording.root, Named(name)));
        recording.Forget(name);
        recording.Mark();
    }
    recording.file->Tidy();
    recording.Mark();
    CheckEveryPrefix(recording);
}

TEST(KillTest, StoragesWithContentComeAndGoAmongOthers)
{
    Recording recording;
    for (unsigned round = 0; round < 60; ++round) {
        const std::string name = "item" + std::to_string(round * 13 % 20);
        auto item = recording.Storage(*recording.root, name);
        recording.Forget(name);
        recording.Set(name, std::nullopt);
        for (unsigned i = 0; i < 6; ++i) {
            const Bytes content = Pattern(i * 1100 + round, round * 10 + i);
            recording.Stream(*item, "s" + std::to_string(i), content);
            recording.Set(name + "/s" + std::to_string(i), content);
        }
        recording.Close(*item);
        recording.Mark();
        // One more stream, now that it is there.
        ASSERT_EQ(S_OK, recording.file->OpenChild(*recording.root, Named(name), EntryType::kStorage, &item));
        recording.Stream(*item, "more", Pattern(round * 100, round));
        recording.Set(name + "/more", Pattern(round * 100, round));
        recording.Mark();
        recording.file->Close(*item);
        if (round % 3 == 2) {
            const std::string gone = "item" + std::to_string((round - 1) * 13 % 20);
            ASSERT_EQ(S_OK, recording.file->Destroy(*recording.root, Named(gone)));
            recording.Forget(gone);
            recording.Mark();
        }
    }
    CheckEveryPrefix(recording);
}

TEST(KillTest, ANewStorageIsThereWholeOrNotAtAllAndSoIsTheOneThatItReplaces)
{
    Recording recording;
    recording.asOne = true;
    for (unsigned round = 0; round < 60; ++round) {
        const std::string name = "item" + std::to_string(round * 13 % 23);
        auto item = recording.Storage(*recording.root, name);
        recording.Forget(name);
        recording.Set(name, std::nullopt);
        for (unsigned i = 0; i < 3 + round % 9; ++i) {
            const Bytes content = Pattern(i * 700 + round, round * 10 + i);
            recording.Stream(*item, "s" + std::to_string(i), content);
            recording.Set(name + "/s" + std::to_string(i), content);
        }
        auto inner = recording.Storage(*item, "inner");
        recording.Set(name + "/inner", std::nullopt);
        for (unsigned i = 0; i < round % 40; ++i) {
            recording.Stream(*inner, "t" + std::to_string(i), Pattern(i * 9, i));
            recording.Set(name + "/inner/t" + std::to_string(i), Pattern(i * 9, i));
        }
        recording.Close(*item);
        recording.Mark();
    }
    recording.file->Tidy();
    recording.Mark();
    CheckEveryPrefix(recording);
}

// More than may lie in memory.
TEST(KillTest, ANewStorageOfManyElementsIsThereWholeOrNotAtAll)
{
    Recording recording;
    recording.Stream(*recording.root, "other", Pattern(3000, 9));
    recording.Set("other", Pattern(3000, 9));
    auto item = recording.Storage(*recording.root, "item");
    recording.marks.clear();
    recording.Mark();
    recording.asOne = true;
    recording.Set("item", std::nullopt);
    for (unsigned i = 0; i < 30; ++i) {
        const std::string name = "box" + std::to_string(i);
        auto box = recording.Storage(*item, name);
        recording.Set("item/" + name, std::nullopt);
        for (unsigned j = 0; j < 12; ++j) {
            const Bytes content = Pattern(j * 1900, i + j);
            recording.Stream(*box, "s" + std::to_string(j), content);
            recording.Set("item/" + name + "/s" + std::to_string(j), content);
        }
        recording.Close(*box);
    }
    recording.Stream(*item, "long", Pattern(1'500'000, 5));
    recording.Set("item/long", Pattern(1'500'000, 5));
    recording.Close(*item);
    recording.Mark();
    recording.file->Tidy();
    recording.Mark();
    CheckEveryPrefix(recording, 7);
}

TEST(KillTest, ARenamedElementIsThereUnderOneOfItsNames)
{
    Recording recording;
    for (unsigned i = 0; i < 60; ++i) {
        recording.Stream(*recording.root, "e" + std::to_string(i), Pattern(70, i));
        recording.Set("e" + std::to_string(i), Pattern(70, i));
    }
    recording.marks.clear();
    recording.Mark();
    std::size_t checked = recording.store.log.size();
    MemoryStore state;
    for (std::size_t i = 0; i < checked; ++i)
        state.Apply(recording.store.log[i]);
    for (unsigned i = 0; i < 60; ++i) {
        const std::string from = "e" + std::to_string(i);
        const std::string to = (i % 2 != 0 ? "renamed" : "r") + std::to_string(i);
        ASSERT_EQ(S_OK, recording.file->Rename(*recording.root, Named(from), Named(to)));
        for (; checked < recording.store.log.size(); ++checked) {
            state.Apply(recording.store.log[checked]);
            Tree found;
            ComPtr<IStorage> root;
            const auto bytes = LockBytesWith(state.bytes);
            ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
            ASSERT_EQ(S_OK, Walk(*root, "", &found));
            ASSERT_EQ(60u, found.size());
            ASSERT_EQ(1u, found.count(from) + found.count(to)) << from;
        }
    }
    const Findings end = Examine(state.bytes);
    EXPECT_TRUE(end.faults.empty()) << Text(end.faults);
    EXPECT_TRUE(end.leaks.empty()) << Text(end.leaks);
}

TEST(KillTest, GrowingAndShrinkingStreamsKeepWhatWasWritten)
{
    Recording recording;
    OpenElementPtr stream;
    recording.Stream(*recording.root, "other", Pattern(3000, 9));
    recording.Stream(*recording.root, "large", Pattern(30000, 10));
    recording.Set("other", Pattern(3000, 9));
    recording.Set("large", Pattern(30000, 10));
    ASSERT_EQ(S_OK,
              recording.file->CreateChild(*recording.root, Named("s"), EntryType::kStream, true, &stream));
    recording.Set("s", Bytes());
    recording.Mark();
    Bytes content;
    for (const std::size_t size : {10u, 64u, 65u, 700u, 4095u, 4096u, 5000u, 20000u, 90000u}) {
        const Bytes part = Pattern(size - content.size(), static_cast<unsigned>(size));
        std::size_t written = 0;
        ASSERT_EQ(S_OK,
                  recording.file->WriteStream(*stream, content.size(), part.data(), part.size(), &written));
        content.insert(content.end(), part.begin(), part.end());
        recording.Set("s", content);
        recording.Mark();
    }
    for (const std::size_t size : {60000u, 4096u, 4095u, 100u, 64u, 0u}) {
        ASSERT_EQ(S_OK, recording.file->SetStreamSize(*stream, size));
        content.resize(size);
        recording.Set("s", content);
        recording.Mark();
    }
    CheckEveryPrefix(recording);
}

// After each write of an operation: what it leaves alone is there, and nothing is that was neither before nor
// after.
void CheckEveryWrite(const FileChange& operation, const Bytes& before, const Tree& tree,
                     Bytes* after = nullptr)
{
    SCOPED_TRACE(operation.what);
    Tree next = tree;
    Session session(Road::kLockBytes, before);
    session.bytes->KeepLog();
    ASSERT_EQ(S_OK, session.Open(kOpen));
    for (const Step& step : operation.steps) {
        ASSERT_EQ(S_OK, step.run(session)) << step.what;
        step.apply(next);
    }
    session.Close();
    MemoryStore state(before);
    std::size_t number = before.size();
    for (const auto& write : session.bytes->Log()) {
        state.Apply(write);
        if (++number % kOneOf != 0)
            continue;
        Tree found;
        Session killed(Road::kLockBytes, state.bytes);
        ASSERT_EQ(S_OK, killed.Open(kRead));
        ASSERT_EQ(S_OK, Walk(*killed.root, "", &found));
        ExpectBetween(found, tree, next, operation);
    }
    EXPECT_FALSE(session.bytes->Log().empty());
    EXPECT_EQ("", Text(Examine(state.bytes).leaks));
    if (after)
        *after = state.bytes;
}

TEST(KillTest, AfterEachWriteOfAnyOperationTheRestIsThere)
{
    Tree tree;
    const Bytes before = MakeFile(BeforeFileChanges(), &tree);
    for (const FileChange& operation : FileChanges())
        CheckEveryWrite(operation, before, tree);
}

TEST(KillTest, AfterEachWriteOfASenderThatAddsFiftyItemsTheyAreThereWholeOrNotAtAll)
{
    Tree tree;
    Bytes file = MakeFile({MakeStorage("other")}, &tree);
    for (unsigned i = 0; i < 50 && !::testing::Test::HasFailure(); ++i) {
        const FileChange add{"add item", {MakeItem("item" + std::to_string(i * 31 % 50), i)}, true};
        CheckEveryWrite(add, file, tree, &file);
        add.steps[0].apply(tree);
    }
    EXPECT_EQ(1u + 50 * 12, tree.size());
}

// Nothing is said of what isn't there any more, in whichever pages the tables lie.
TEST(KillTest, AfterEachWriteThatGivesTheEndsOfTablesBackNoTableIsShorterThanIsSaidOfIt)
{
    std::vector<Step> steps{MakeStream("kept"), test::Write("kept", 0, Pattern(100, 1))};
    for (unsigned i = 0; i < 60; ++i) {
        steps.push_back(MakeStream(std::to_string(i)));
        steps.push_back(test::Write(std::to_string(i), 0, Pattern(3'000, i)));
    }
    const Bytes before = MakeFile(steps, nullptr);
    Session session(Road::kLockBytes, before);
    session.bytes->KeepLog();
    ASSERT_EQ(S_OK, session.Open(kOpen));
    for (unsigned i = 0; i < 60; ++i)
        ASSERT_EQ(S_OK, session.root->DestroyElement(Wide(std::to_string(i)).c_str()));
    session.Close();
    MemoryStore state(before);
    for (const auto& write : session.bytes->Log()) {
        state.Apply(write);
        ASSERT_EQ("", Text(Examine(state.bytes).faults));
    }
    EXPECT_GT(before.size() - 50'000, state.bytes.size());
}

// Making a file: until the last write there is none, or an empty one.
TEST(KillTest, AfterEachWriteOfACreationThereIsNoFileOrAnEmptyOne)
{
    Session session(Road::kLockBytes, MakeFile(BeforeFileChanges(), nullptr));
    const Bytes before = session.Content();
    session.bytes->KeepLog();
    ASSERT_EQ(S_OK, session.Create(Layout::kVersion3));
    session.Close();
    MemoryStore state(before);
    for (const auto& write : session.bytes->Log()) {
        state.Apply(write);
        Session killed(Road::kLockBytes, state.bytes);
        const HRESULT hr = killed.Open(kRead);
        EXPECT_TRUE(hr == S_OK || hr == STG_E_FILEALREADYEXISTS) << std::hex << hr;
        Tree found;
        EXPECT_TRUE(FAILED(hr) || (SUCCEEDED(Walk(*killed.root, "", &found)) && found.empty()));
    }
    EXPECT_LT(2u, session.bytes->Log().size());
}

}  // namespace
}  // namespace quorvane::cfb::test
