// A file that is opened, changed and closed time and again.
#include "platform/cfb/known_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include "platform/cfb/compound_file.h"
#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

// Bytes with an identity, which counts what is read of them.
class KnownBytes final : public ByteStore {
public:
    explicit KnownBytes(std::uint64_t file) : file_(file) {}

    HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept override
    {
        ++reads;
        return content.ReadAt(offset, to, count, read);
    }
    HRESULT WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept override
    {
        ++changed;
        return content.WriteAt(offset, from, count);
    }
    HRESULT SetSize(std::uint64_t size) noexcept override
    {
        ++changed;
        return content.SetSize(size);
    }
    HRESULT GetSize(std::uint64_t* size) noexcept override { return content.GetSize(size); }
    std::optional<Identity> Identify() noexcept override { return Identity{7, file_, 0, changed}; }
    std::optional<Identity> Seal() noexcept override
    {
        ++changed;
        return Identify();
    }

    MemoryStore content;
    std::size_t reads = 0;
    std::int64_t changed = 0;

private:
    std::uint64_t file_;
};

ElementName KnownName(unsigned i)
{
    ElementName name;
    EXPECT_EQ(S_OK, name.Assign(Wide("e" + std::to_string(i * 7919 % 1'000'003)).c_str()));
    return name;
}

class KnownFilesTest : public ::testing::Test {
protected:
    KnownFilesTest()
    {
        static std::uint64_t files = 0;
        store = std::make_unique<KnownBytes>(++files);
    }

    // Adds elements through a root that is closed behind them.
    void Add(unsigned count, bool create = false) { AddTo(*store, count, create); }
    void AddTo(ByteStore& bytes, unsigned count, bool create)
    {
        Arena memory;
        CompoundFile file(bytes, memory);
        OpenElementPtr root;
        ASSERT_EQ(S_OK, create ? file.Format(layout) : file.Open());
        ASSERT_EQ(S_OK, file.OpenRoot(&root));
        for (unsigned i = 0; i < count; ++i, ++made) {
            OpenElementPtr child;
            std::size_t written = 0;
            const Bytes content = Pattern(made % 40 == 0 ? 5000 : 100, made);
            ASSERT_EQ(S_OK, file.CreateChild(*root, KnownName(made), EntryType::kStream, true, &child));
            ASSERT_EQ(S_OK, file.WriteStream(*child, 0, content.data(), content.size(), &written));
            file.Close(*child);
        }
        file.Tidy();
        file.Close(*root);
        file.Leave();
    }

    // Of opening, adding one element and closing.
    std::size_t ReadsToAdd()
    {
        const std::size_t before = store->reads;
        Add(1);
        return store->reads - before;
    }

    // Reads the first byte of an element's content, and overwrites it with another if there is one, through
    // a root of its own; in the midst of it `meanwhile` happens.
    static BYTE FirstByte(
        ByteStore& bytes, unsigned element, std::optional<BYTE> other = std::nullopt,
        const std::function<void()>& meanwhile = [] {})
    {
        Arena memory;
        CompoundFile file(bytes, memory);
        OpenElementPtr root;
        OpenElementPtr child;
        BYTE first = 0;
        std::size_t done = 0;
        EXPECT_EQ(S_OK, file.Open());
        EXPECT_EQ(S_OK, file.OpenRoot(&root));
        EXPECT_EQ(S_OK, file.OpenChild(*root, KnownName(element), EntryType::kStream, &child));
        EXPECT_EQ(S_OK, file.ReadStream(*child, 0, &first, 1, &done));
        if (other) {
            EXPECT_EQ(S_OK, file.WriteStream(*child, 0, &*other, 1, &done));
        }
        meanwhile();
        file.Close(*root);
        file.Leave();
        return first;
    }
    // Another program does so: neither the header nor the root entry tell of it.
    void OverwriteAsOthersDo(unsigned element, BYTE first)
    {
        FirstByte(store->content, element, first);
        ++store->changed;
    }

    void ExpectAll()
    {
        Tree tree;
        ComPtr<IStorage> root;
        const auto bytes = LockBytesWith(store->content.bytes);
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kRead, root.Put()));
        ASSERT_EQ(S_OK, Walk(*root, "", &tree));
        EXPECT_EQ(made, tree.size());
        const Findings findings = Examine(store->content.bytes);
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
        EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
    }

    std::unique_ptr<KnownBytes> store;
    unsigned made = 0;
    Layout layout = Layout::kVersion3;
};

TEST_F(KnownFilesTest, WhatAnOpenAnAddAndACloseReadDoesNotGrowWithTheFile)
{
    Add(100, true);
    ReadsToAdd();
    const std::size_t few = ReadsToAdd();
    Add(20'000);
    ReadsToAdd();
    const std::size_t many = ReadsToAdd();

    EXPECT_LE(many, few + 40) << "but for the depth of the tree";
    ExpectAll();
}

TEST_F(KnownFilesTest, PagesThatTheLastFileHadCachedAreNotReadAgain)
{
    Add(500, true);
    ReadsToAdd();
    EXPECT_LE(ReadsToAdd(), 4u) << "the header, the root entry and what the tree's way leads to anew";

    // Those of an older one go.
    auto other = std::make_unique<KnownBytes>(2'000'000);
    store.swap(other);
    const unsigned before = std::exchange(made, 0);
    Add(500, true);
    store.swap(other);
    made = before;
    EXPECT_GT(ReadsToAdd(), 4u);
    ExpectAll();
}

// What was read before that can't be told from what was read behind it.
TEST_F(KnownFilesTest, AFileThatOthersChangeWhileItIsOnlyReadIsReadAnew)
{
    Add(2'000, true);
    const KnownBytes before = *store;
    Add(500);
    {
        Arena memory;
        CompoundFile file(*store, memory);
        OpenElementPtr root;
        ASSERT_EQ(S_OK, file.Open());
        ASSERT_EQ(S_OK, file.OpenRoot(&root));
        store->content = before.content;
        ++store->changed;
        file.Close(*root);
        file.Leave();
    }
    made -= 500;

    Add(100);
    ExpectAll();
}

// Another program has put other bytes in the place of the file's.
TEST_F(KnownFilesTest, AFileThatOthersChangedIsReadAnew)
{
    Add(5'000, true);
    const KnownBytes before = *store;
    Add(500);
    store->content = before.content;
    ++store->changed;
    made -= 500;

    Add(100);
    ExpectAll();
}

// The same, and their identity is the one that is known.
TEST_F(KnownFilesTest, AnIdentityAloneIsNotBelieved)
{
    Add(2'000, true);
    const KnownBytes known = *store;
    store = std::make_unique<KnownBytes>(1'000'000);
    made = 0;
    Add(3'000, true);
    const MemoryStore other = store->content;
    *store = known;
    store->content = other;

    Add(100);
    ExpectAll();
}

// The same, of the file whose pages are cached yet.
TEST_F(KnownFilesTest, AHeaderIsReadAnew)
{
    Add(2'000, true);
    MemoryStore other;
    made = 0;
    AddTo(other, 3'000, true);
    store->content = other;

    Add(100);
    ExpectAll();
}

TEST_F(KnownFilesTest, ContentThatOthersChangeInItsPlaceIsReadAnew)
{
    Add(200, true);
    ASSERT_NE(0xEE, FirstByte(*store, 7));
    OverwriteAsOthersDo(7, 0xEE);
    EXPECT_EQ(0xEE, FirstByte(*store, 7));
}

TEST_F(KnownFilesTest, ContentThatOthersChangeWhileItIsOnlyReadIsReadAnew)
{
    Add(200, true);
    ASSERT_NE(0xEE, FirstByte(*store, 7, std::nullopt, [this] { OverwriteAsOthersDo(7, 0xEE); }));
    EXPECT_EQ(0xEE, FirstByte(*store, 7));
}

// The header is the same, and the root entry, which lies in its page or in another one, tells of less.
class AnEarlierRootEntry : public KnownFilesTest, public ::testing::WithParamInterface<Layout> {};

TEST_P(AnEarlierRootEntry, IsReadAnew)
{
    layout = GetParam();
    const std::ptrdiff_t root = layout == Layout::kVersion3 ? 1024 : 8192;
    Add(100, true);
    Bytes before;
    const auto isSame = [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
        return std::equal(before.begin() + begin, before.begin() + end, store->content.bytes.begin() + begin);
    };
    do {
        before = store->content.bytes;
        Add(1);
        ASSERT_LT(made, 2'000u) << "no mini stream that grew by itself";
    } while (!isSame(0, 512) || isSame(root, root + 128));
    store->content.bytes = before;
    --made;

    Add(50);
    ExpectAll();
}

INSTANTIATE_TEST_SUITE_P(KnownFilesTest, AnEarlierRootEntry,
                         ::testing::Values(Layout::kVersion3, Layout::kVersion4));

TEST_F(KnownFilesTest, OnlyTheLastFilesAreRemembered)
{
    ByteStore::Identity identity{8, 0, 0, 0};
    for (identity.file = 1; identity.file <= 6; ++identity.file)
        KnownFiles::Instance().Keep(identity, std::make_unique<Volume>(*store));
    unsigned kept = 0;
    for (identity.file = 1; identity.file <= 6; ++identity.file)
        kept += KnownFiles::Instance().Take(identity) ? 1 : 0;
    EXPECT_EQ(4u, kept);
}

}  // namespace
}  // namespace quorvane::cfb::test
