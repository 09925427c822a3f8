// New storages, which land in the file when they are released or committed.
#include <gtest/gtest.h>

#include <set>

#include "platform/cfb/testing/series.h"
#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

class DraftsTest : public ::testing::Test {
protected:
    DraftsTest() { EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put())); }

    static ComPtr<IStorage> Make(IStorage& parent, const std::string& name)
    {
        ComPtr<IStorage> storage;
        EXPECT_EQ(S_OK, parent.CreateStorage(Wide(name).c_str(), kCreate, 0, 0, storage.Put()));
        return storage;
    }

    // What a program finds that opens the file now.
    Tree InFile(ULONG* leaks = nullptr)
    {
        Tree tree;
        ComPtr<IStorage> other;
        const auto copy = LockBytesWith(bytes->Content());
        EXPECT_EQ(S_OK, OpenDocfileOnLockBytes(copy.Get(), kRead, other.Put()));
        EXPECT_EQ(S_OK, Walk(*other, "", &tree));
        const Findings findings = Examine(bytes->Content());
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
        if (leaks)
            *leaks = static_cast<ULONG>(findings.leaks.size());
        return tree;
    }

    static std::vector<std::string> Names(IStorage& storage)
    {
        std::vector<std::string> names;
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(S_OK, storage.EnumElements(0, nullptr, 0, elements.Put()));
        for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName))
            names.push_back(NarrowName(stat.pwcsName));
        return names;
    }

    void CloseAndExpect(const Tree& tree)
    {
        root.Reset();
        ULONG leaks = 0;
        EXPECT_TRUE(InFile(&leaks) == tree);
        EXPECT_EQ(0u, leaks);
    }

    ComPtr<FaultyBytes> bytes = MakeComObject<FaultyBytes>();
    ComPtr<IStorage> root;
};

TEST_F(DraftsTest, ANewStorageLandsWholeWhenItIsReleased)
{
    auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "short", Pattern(100, 1)));
    ASSERT_EQ(S_OK, WriteStream(*Make(*storage, "inner"), "long", Pattern(9000, 2)));
    EXPECT_TRUE(InFile().empty());

    storage.Reset();
    EXPECT_TRUE(InFile() == (Tree{{"s", std::nullopt},
                                  {"s/inner", std::nullopt},
                                  {"s/inner/long", Pattern(9000, 2)},
                                  {"s/short", Pattern(100, 1)}}));
}

TEST_F(DraftsTest, TheOldOneIsInTheFileUntilTheNewOneLands)
{
    ASSERT_EQ(S_OK, WriteStream(*Make(*root, "s"), "old", Pattern(5000, 1)));
    auto storage = Make(*root, "S");
    ASSERT_EQ(S_OK, WriteStream(*storage, "new", Pattern(10, 2)));
    EXPECT_EQ((std::vector<std::string>{"S"}), Names(*root));
    EXPECT_TRUE(InFile() == (Tree{{"s", std::nullopt}, {"s/old", Pattern(5000, 1)}}));

    storage.Reset();
    CloseAndExpect({{"S", std::nullopt}, {"S/new", Pattern(10, 2)}});
}

TEST_F(DraftsTest, WhoeverHasTheOldOneOpenFindsItReverted)
{
    Make(*root, "s");
    ComPtr<IStorage> old;
    ASSERT_EQ(S_OK, root->OpenStorage(OLESTR("s"), nullptr, kOpen, nullptr, 0, old.Put()));
    auto inner = Make(*old, "inner");
    const auto storage = Make(*root, "s");
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, old->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(STG_E_REVERTED, inner->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(S_OK, storage->Stat(&stat, STATFLAG_NONAME));
}

TEST_F(DraftsTest, ItsParentFindsANewStorage)
{
    for (const char* name : {"a", "c", "e"})
        ASSERT_EQ(S_OK, WriteStream(*root, name, {}));
    auto d = Make(*root, "d");
    auto f = Make(*root, "f");
    auto zero = Make(*root, "0");
    EXPECT_EQ((std::vector<std::string>{"0", "a", "c", "d", "e", "f"}), Names(*root));

    ComPtr<IStorage> again;
    ComPtr<IStream> stream;
    EXPECT_EQ(STG_E_ACCESSDENIED, root->OpenStorage(OLESTR("d"), nullptr, kOpen, nullptr, 0, again.Put()));
    EXPECT_EQ(STG_E_FILENOTFOUND, root->OpenStream(OLESTR("d"), nullptr, kOpen, 0, stream.Put()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, root->CreateStorage(OLESTR("d"), kOpen, 0, 0, again.Put()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, root->CreateStream(OLESTR("d"), kOpen, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_ACCESSDENIED, root->RenameElement(OLESTR("d"), OLESTR("x")));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, root->RenameElement(OLESTR("a"), OLESTR("d")));
    const FILETIME time = {77, 99};
    ASSERT_EQ(S_OK, root->SetElementTimes(OLESTR("d"), &time, nullptr, &time));
    STATSTG stat{};
    ASSERT_EQ(S_OK, d->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(77u, stat.mtime.dwLowDateTime);

    EXPECT_EQ(S_OK, root->DestroyElement(OLESTR("d")));
    EXPECT_EQ(STG_E_REVERTED, d->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(S_OK, root->CreateStream(OLESTR("f"), kCreate, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_REVERTED, f->Stat(&stat, STATFLAG_NONAME));
    stream.Reset();
    CloseAndExpect({{"0", std::nullopt}, {"a", Bytes()}, {"c", Bytes()}, {"e", Bytes()}, {"f", Bytes()}});
}

TEST_F(DraftsTest, ANewStorageThatIsRevertedIsGoneAndTheOldOneStays)
{
    ASSERT_EQ(S_OK, WriteStream(*Make(*root, "s"), "old", Pattern(5000, 1)));
    const auto storage = Make(*root, "s");
    const auto inner = Make(*storage, "inner");
    ASSERT_EQ(S_OK, WriteStream(*inner, "new", Pattern(3'000'000, 2)));
    EXPECT_EQ(S_OK, inner->Revert()) << "which lands with the storage, and stays in it";
    EXPECT_EQ((std::vector<std::string>{"inner"}), Names(*storage));

    EXPECT_EQ(S_OK, storage->Revert());
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, storage->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(STG_E_REVERTED, inner->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ((std::vector<std::string>{"s"}), Names(*root));
    CloseAndExpect({{"s", std::nullopt}, {"s/old", Pattern(5000, 1)}});
}

TEST_F(DraftsTest, AStorageThatHasLandedIsNotReverted)
{
    const auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "a", Pattern(100, 1)));
    ASSERT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    EXPECT_EQ(S_OK, storage->Revert());
    EXPECT_EQ((std::vector<std::string>{"a"}), Names(*storage));
}

TEST_F(DraftsTest, DestroyingANewStorageDestroysTheOneThatItWasToReplace)
{
    ASSERT_EQ(S_OK, WriteStream(*Make(*root, "s"), "old", Pattern(5000, 1)));
    const auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "new", Pattern(3'000'000, 2)));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("s")));
    EXPECT_TRUE(Names(*root).empty());
    CloseAndExpect({});
}

TEST_F(DraftsTest, CommittedElementsStayOpen)
{
    const auto storage = Make(*root, "s");
    const auto inner = Make(*storage, "inner");
    ComPtr<IStream> stream;
    ULONG written = 0;
    ASSERT_EQ(S_OK, inner->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    ASSERT_EQ(S_OK, stream->Write("abc", 3, &written));
    ASSERT_EQ(S_OK, inner->Commit(STGC_DEFAULT));
    EXPECT_TRUE(InFile().empty()) << "it lands with the storage that it lies in";
    ASSERT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    EXPECT_TRUE(InFile() ==
                (Tree{{"s", std::nullopt}, {"s/inner", std::nullopt}, {"s/inner/a", Bytes{'a', 'b', 'c'}}}));
    ASSERT_EQ(S_OK, stream->Write("def", 3, &written));
    ASSERT_EQ(S_OK, WriteStream(*storage, "b", Bytes{1}));
    EXPECT_TRUE(InFile() == (Tree{{"s", std::nullopt},
                                  {"s/b", Bytes{1}},
                                  {"s/inner", std::nullopt},
                                  {"s/inner/a", Bytes{'a', 'b', 'c', 'd', 'e', 'f'}}}));
}

TEST_F(DraftsTest, TheRootsReleaseLandsWhatIsOpen)
{
    const auto one = Make(*root, "one");
    const auto two = Make(*root, "two");
    ASSERT_EQ(S_OK, WriteStream(*Make(*two, "inner"), "a", Bytes{1}));
    CloseAndExpect({{"one", std::nullopt},
                    {"two", std::nullopt},
                    {"two/inner", std::nullopt},
                    {"two/inner/a", Bytes{1}}});
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, two->Stat(&stat, STATFLAG_NONAME));
}

TEST_F(DraftsTest, TheNextCallTellsThatAStorageCouldNotLand)
{
    ASSERT_EQ(S_OK, WriteStream(*Make(*root, "s"), "old", Pattern(500, 1)));
    const Tree before = InFile();
    auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "new", Pattern(500, 2)));
    bytes->RefuseWrite(0, false);
    storage.Reset();

    STATSTG stat{};
    EXPECT_EQ(STG_E_MEDIUMFULL, root->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(S_OK, root->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ((std::vector<std::string>{"s"}), Names(*root));
    CloseAndExpect(before);
}

TEST_F(DraftsTest, ACommitTellsThatAStorageCouldNotLandAndMayBeTriedAgain)
{
    auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "new", Pattern(500, 2)));
    for (std::size_t write = 0; write < 2; ++write) {
        bytes->RefuseWrite(write, false);
        EXPECT_EQ(STG_E_MEDIUMFULL, storage->Commit(STGC_DEFAULT));
    }
    EXPECT_TRUE(InFile().empty());
    EXPECT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    storage.Reset();
    CloseAndExpect({{"s", std::nullopt}, {"s/new", Pattern(500, 2)}});
}

// Content that is too long for memory is in the file before the storage is, and goes with it.
TEST_F(DraftsTest, LongContentLandsOrGoes)
{
    auto storage = Make(*root, "s");
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, storage->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    for (unsigned i = 0; i < 60; ++i)
        ASSERT_EQ(S_OK, WriteAt(*stream, i * 60'000, Pattern(60'000, i)));
    EXPECT_LT(std::size_t{2'000'000}, bytes->Content().size());
    EXPECT_TRUE(InFile().empty());
    ASSERT_EQ(S_OK, stream->SetSize(Large(2'000'000)));
    stream.Reset();
    Bytes content;
    ASSERT_EQ(S_OK, ReadStream(*storage, "a", &content));
    ASSERT_EQ(2'000'000u, content.size());
    EXPECT_TRUE(std::equal(content.begin(), content.begin() + 60'000, Pattern(60'000, 0).begin()));
    ASSERT_EQ(S_OK, storage->RenameElement(OLESTR("a"), OLESTR("b")));
    ASSERT_EQ(S_OK, WriteStream(*storage, "gone", Pattern(1'200'000, 3)));
    ASSERT_EQ(S_OK, storage->DestroyElement(OLESTR("gone")));
    storage.Reset();
    CloseAndExpect({{"s", std::nullopt}, {"s/b", content}});
}

TEST_F(DraftsTest, WhatIsDestroyedInANewStorageLeavesItsRoomToTheNextAtOnce)
{
    const auto storage = Make(*root, "s");
    for (unsigned i = 0; i < 4; ++i) {
        ASSERT_EQ(S_OK, WriteStream(*storage, "long", Pattern(2'000'000, i)));
        ASSERT_EQ(S_OK, storage->DestroyElement(OLESTR("long")));
    }
    EXPECT_GT(std::size_t{2'500'000}, bytes->Content().size());
    CloseAndExpect({{"s", std::nullopt}});
}

TEST_F(DraftsTest, AnElementOfANewStorageIsReplacedOnlyWhenThatIsAskedFor)
{
    const auto storage = Make(*root, "s");
    ASSERT_EQ(S_OK, WriteStream(*storage, "a", Pattern(100, 1)));
    Make(*storage, "b");
    ComPtr<IStorage> inner;
    ComPtr<IStream> stream;
    for (const OLECHAR* name : {OLESTR("a"), OLESTR("b")}) {
        EXPECT_EQ(STG_E_FILEALREADYEXISTS, storage->CreateStorage(name, kOpen, 0, 0, inner.Put()));
        EXPECT_EQ(STG_E_FILEALREADYEXISTS, storage->CreateStream(name, kOpen, 0, 0, stream.Put()));
    }
    Bytes content;
    EXPECT_EQ(S_OK, ReadStream(*storage, "a", &content));
    EXPECT_EQ(Pattern(100, 1), content);
}

// Streams that all are open: there is nothing that could be put into the file but what is in them. A write
// that is refused meanwhile is told.
TEST_F(DraftsTest, OfStreamsThatAreOpenOneGoesOnInSectorsWhenTheyTakeTooMuchMemory)
{
    constexpr unsigned kStreams = 30;
    auto storage = Make(*root, "s");
    std::vector<ComPtr<IStream>> streams(kStreams);
    Tree expected{{"s", std::nullopt}};
    unsigned refused = 0;
    for (unsigned i = 0; i < 2 * kStreams; ++i) {
        const std::string name = std::to_string(i % kStreams);
        const unsigned at = i < kStreams ? 0 : 60'000;
        ComPtr<IStream>& stream = streams[i % kStreams];
        if (i < kStreams) {
            ASSERT_EQ(S_OK, storage->CreateStream(Wide(name).c_str(), kCreate, 0, 0, stream.Put()));
        }
        bytes->RefuseWrite(0, false);
        const HRESULT hr = WriteAt(*stream, at, Pattern(60'000, i));
        const bool failed = bytes->HasRefused();
        bytes->RefuseRead(~std::size_t{0});
        EXPECT_EQ(failed ? STG_E_MEDIUMFULL : S_OK, hr) << i;
        refused += failed ? 1 : 0;
        EXPECT_EQ(S_OK, WriteAt(*stream, at, Pattern(60'000, i))) << i;
    }
    EXPECT_LT(0u, refused);
    EXPECT_LT(std::size_t{50'000}, bytes->Content().size());
    EXPECT_TRUE(InFile().empty());
    for (unsigned i = 0; i < kStreams; ++i) {
        Bytes content = Pattern(60'000, i);
        const Bytes more = Pattern(60'000, i + kStreams);
        content.insert(content.end(), more.begin(), more.end());
        expected["s/" + std::to_string(i)] = content;
    }
    streams.clear();
    storage.Reset();
    root.Reset();
    EXPECT_TRUE(InFile() == expected);
}

// So much in small parts that they are put into the file before their storage is, and are found in it all the
// same.
TEST_F(DraftsTest, PartsThatNobodyHasOpenDontStayInMemory)
{
    auto storage = Make(*root, "s");
    Tree expected{
        {"s", std::nullopt}, {"s/renamed", std::nullopt}, {"s/renamed/content", Pattern(70'000, 0)}};
    for (unsigned number = 0; number < 16; ++number) {
        const std::string box = "box" + std::to_string(number);
        ASSERT_EQ(S_OK, WriteStream(*Make(*storage, box), "content", Pattern(70'000, number)));
        if (number == 0)
            continue;
        expected["s/" + box] = std::nullopt;
        expected["s/" + box + "/content"] = Pattern(70'000, number);
    }
    EXPECT_LT(std::size_t{900'000}, bytes->Content().size());
    EXPECT_TRUE(InFile().empty());

    const FILETIME time = {77, 99};
    ASSERT_EQ(S_OK, storage->SetElementTimes(OLESTR("box0"), nullptr, nullptr, &time));
    ASSERT_EQ(S_OK, storage->RenameElement(OLESTR("box0"), OLESTR("renamed")));
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, storage->EnumElements(0, nullptr, 0, elements.Put()));
    std::set<std::string> names;
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName)) {
        names.insert(NarrowName(stat.pwcsName));
        EXPECT_EQ(DWORD{STGTY_STORAGE}, stat.type);
        if (NarrowName(stat.pwcsName) == "renamed") {
            EXPECT_EQ(77u, stat.mtime.dwLowDateTime);
        }
    }
    EXPECT_EQ(16u, names.size());
    EXPECT_TRUE(names.contains("renamed"));
    EXPECT_FALSE(names.contains("box0"));

    storage.Reset();
    CloseAndExpect(expected);
}

TEST_F(DraftsTest, GapsThatAnEarlierSessionLeftAreFilled)
{
    constexpr unsigned kStreams = 120;
    for (unsigned i = 0; i < kStreams; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, std::to_string(i), Pattern(600, i)));
    for (unsigned i = 0; i < kStreams; i += 2)
        ASSERT_EQ(S_OK, root->DestroyElement(Wide(std::to_string(i)).c_str()));
    root.Reset();
    const std::size_t before = bytes->Content().size();
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    auto storage = Make(*root, "s");
    for (unsigned i = 0; i < kStreams / 2 - 4; ++i)
        ASSERT_EQ(S_OK, WriteStream(*storage, std::to_string(i), Pattern(600, i)));
    storage.Reset();
    root.Reset();
    EXPECT_GE(before + 10'000, bytes->Content().size());
}

// Any series of operations below a new storage, with so much content that parts of it are in the file before.
TEST_F(DraftsTest, WhateverIsDoneInANewStorageIsThereWhenItLands)
{
    for (std::uint32_t seed = 1; seed <= 12 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Session session;
        session.bytes = bytes;
        session.root = Make(*root, "s");
        Tree tree;
        Tree planned;
        for (const Step& step : RandomSeries(seed, 400, &planned)) {
            if (step.what != "reopen" && (step.what != "commit" || seed % 3 == 0)) {
                ASSERT_EQ(S_OK, step.run(session)) << step.what;
            }
            step.apply(tree);
        }
        session.root.Reset();
        Tree expected{{"s", std::nullopt}};
        for (const auto& [path, content] : tree)
            expected["s/" + path] = content;
        ULONG leaks = 0;
        EXPECT_TRUE(InFile(&leaks) == expected);
        EXPECT_EQ(0u, leaks);
    }
}

enum class Refused { kOneWrite, kAllWrites, kOneRead };

// A new storage in the place of an old one, with so much content that most of it is in the file before it
// lands.
class DraftFaultTest : public DraftsTest, public ::testing::WithParamInterface<Refused> {
protected:
    void Refuse(std::size_t access)
    {
        if (GetParam() == Refused::kOneRead)
            bytes->RefuseRead(access);
        else
            bytes->RefuseWrite(access, GetParam() == Refused::kAllWrites);
    }

    // Every failure is to be told by a step, or by the commit that ends them.
    void Note(HRESULT hr) { told_ = told_ || FAILED(hr); }

    void MakeClosed(IStorage& parent, unsigned number)
    {
        ComPtr<IStorage> box;
        const std::string name = "box" + std::to_string(number);
        const HRESULT hr = parent.CreateStorage(Wide(name).c_str(), kCreate, 0, 0, box.Put());
        Note(hr);
        if (SUCCEEDED(hr))
            Note(WriteStream(*box, "content", Pattern(70'000, number)));
    }

    void Replace()
    {
        ComPtr<IStorage> storage;
        HRESULT hr = root->CreateStorage(OLESTR("s"), kCreate, 0, 0, storage.Put());
        Note(hr);
        if (FAILED(hr))
            return;
        ComPtr<IStream> held;
        hr = storage->CreateStream(OLESTR("held"), kCreate, 0, 0, held.Put());
        Note(hr);
        for (unsigned number = 0; number < kBoxes; ++number) {
            MakeClosed(*storage, number);
            if (held)
                Note(WriteAt(*held, number * 80'000, Pattern(80'000, number)));
        }
        Note(storage->DestroyElement(OLESTR("box0")));
        const FILETIME time = {77, 99};
        Note(storage->SetElementTimes(OLESTR("box1"), &time, nullptr, &time));
        held.Reset();
        storage.Reset();
        Note(root->Commit(STGC_DEFAULT));
    }

    static Tree Replaced()
    {
        Tree tree{{"s", std::nullopt}};
        Bytes content;
        for (unsigned number = 0; number < kBoxes; ++number) {
            const Bytes part = Pattern(80'000, number);
            content.insert(content.end(), part.begin(), part.end());
            if (number == 0)
                continue;
            const std::string box = "s/box" + std::to_string(number);
            tree[box] = std::nullopt;
            tree[box + "/content"] = Pattern(70'000, number);
        }
        tree["s/held"] = content;
        return tree;
    }

    static constexpr unsigned kBoxes = 16;
    bool told_ = false;
};

TEST_P(DraftFaultTest, WhateverIsRefusedIsToldAndTheFileIsSound)
{
    const Tree expected = Replaced();
    // These are few, as what is written whole isn't read first.
    const bool reads = GetParam() == Refused::kOneRead;
    std::size_t toldOf = 0;
    for (std::size_t access = 0;; access += reads ? 1 : kOneOf * (1 + access / 12)) {
        SCOPED_TRACE(access);
        bytes = MakeComObject<FaultyBytes>();
        root.Reset();
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
        ASSERT_EQ(S_OK, WriteStream(*Make(*root, "s"), "old", Pattern(5000, 1)));
        ASSERT_EQ(S_OK, root->Commit(STGC_DEFAULT));
        told_ = false;
        Refuse(access);
        Replace();
        const bool refused = bytes->HasRefused();
        root.Reset();
        bytes->RefuseRead(~std::size_t{0});
        const Tree after = InFile();
        EXPECT_TRUE(told_ || after == expected);
        toldOf += told_ ? 1 : 0;
        if (HasFailure() || !refused)
            break;
    }
    EXPECT_FALSE(told_) << "nothing was refused at last";
    EXPECT_LT(reads ? 2u : 10u / kOneOf, toldOf);
}

INSTANTIATE_TEST_SUITE_P(Refusals, DraftFaultTest,
                         ::testing::Values(Refused::kOneWrite, Refused::kAllWrites, Refused::kOneRead));

}  // namespace
}  // namespace quorvane::cfb::test
