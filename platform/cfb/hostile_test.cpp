// Files that lie: they end in a code, soon, and with little memory.
#include <gtest/gtest.h>

#include <bit>
#include <filesystem>
#include <set>
#include <tuple>

#include "platform/cfb/format.h"
#include "platform/cfb/testing/exercise.h"
#include "platform/cfb/testing/interrupted.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

// A file with ten streams and a storage of ten more, and where things are in it.
class HostileTest : public ::testing::TestWithParam<Road> {
protected:
    HostileTest()
    {
        const auto bytes = NewLockBytes();
        {
            ComPtr<IStorage> root;
            ComPtr<IStorage> storage;
            EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
            EXPECT_EQ(S_OK, root->CreateStorage(OLESTR("storage"), kCreate, 0, 0, storage.Put()));
            for (unsigned i = 0; i < 10; ++i) {
                EXPECT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(i), Pattern(i * 700, i)));
                EXPECT_EQ(S_OK, WriteStream(*storage, "s" + std::to_string(i), Pattern(i * 70, i)));
            }
        }
        file = ContentOf(*bytes);
    }

    void Set(std::size_t at, std::uint32_t value) { StoreU32(&file[at], value); }
    std::uint32_t Get(std::size_t at) const { return LoadU32(&file[at]); }

    // Where the entry of a name stands.
    std::size_t EntryOf(const std::string& name) const
    {
        for (std::size_t at = 512; at + 128 <= file.size(); at += 128) {
            bool same = file[at + 64] == 2 * (name.size() + 1) && file[at + 65] == 0;
            for (std::size_t i = 0; same && i < name.size(); ++i)
                same = file[at + 2 * i] == static_cast<BYTE>(name[i]) && file[at + 2 * i + 1] == 0;
            if (same)
                return at;
        }
        ADD_FAILURE() << name;
        return 0;
    }

    HRESULT Open() const { return Session(GetParam(), file).Open(kOpen); }
    HRESULT Exercise() const { return test::Exercise(file, GetParam()); }
    // Of what is done many times a part is done on files.
    std::size_t Stride() const { return GetParam() == Road::kFile ? 40 : 1; }

    Bytes file;
};

constexpr std::size_t kLeft = 0x44;
constexpr std::size_t kRight = 0x48;
constexpr std::size_t kChild = 0x4C;
constexpr std::size_t kStart = 0x74;
constexpr std::size_t kSize = 0x78;

TEST_P(HostileTest, AHeaderWithAnUnknownShapeIsRefused)
{
    file[30] = 13;
    EXPECT_EQ(STG_E_INVALIDHEADER, Open());
    file[30] = 9;
    file[26] = 5;
    EXPECT_EQ(STG_E_INVALIDHEADER, Open());
}

TEST_P(HostileTest, AFatOfFourBillionSectorsCostsNothing)
{
    Set(44, 0xFFFFFFFF);
    EXPECT_EQ(S_OK, Exercise());
    Set(44, 0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Open());
}

TEST_P(HostileTest, AFatSectorOutsideOfTheFileIsRefused)
{
    Set(76, 0x00FFFFFF);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Open());
}

TEST_P(HostileTest, ADirectoryThatIsALoopEnds)
{
    const std::uint32_t first = Get(48);
    Set(512 + 4 * first, first);
    EXPECT_TRUE(FAILED(Exercise()));
}

TEST_P(HostileTest, AStreamThatIsALoopIsReadOnceRound)
{
    const std::size_t entry = EntryOf("e9");
    Set(512 + 4 * Get(entry + kStart), Get(entry + kStart));
    Set(entry + kSize, 0x7FFFFFFF);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise());
}

TEST_P(HostileTest, ASizeThatTheFileCannotHoldIsRefused)
{
    Set(EntryOf("e9") + kSize, 0x70000000);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise());
}

TEST_P(HostileTest, AnEntryThatLinksToItselfIsToldOnce)
{
    const std::size_t entry = EntryOf("e4");
    for (std::uint32_t id = 1; id < 22; ++id) {
        Set(entry + kLeft, id);
        Set(entry + kRight, id);
        EXPECT_TRUE(FAILED(Exercise())) << id;
    }
}

TEST_P(HostileTest, AStorageInsideOfItselfHasNoBottomButAnEnd)
{
    const std::size_t storage = EntryOf("storage");
    const std::uint32_t self = 1;  // the first element that was made
    Set(storage + kChild, self);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise());
}

// Thirty storages, each with two names for the next one: a billion paths to the last.
TEST_P(HostileTest, TwoLinksToOneStorageDoNotMultiply)
{
    const auto bytes = NewLockBytes();
    constexpr unsigned kLevels = 30;
    {
        std::vector<ComPtr<IStorage>> levels(1);
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, levels[0].Put()));
        for (unsigned i = 0; i < kLevels; ++i) {
            ComPtr<IStorage> a;
            ComPtr<IStorage> b;
            IStorage& at = *levels.back();
            ASSERT_EQ(S_OK, at.CreateStorage(Wide("a" + std::to_string(i)).c_str(), kCreate, 0, 0, a.Put()));
            ASSERT_EQ(S_OK, at.CreateStorage(Wide("b" + std::to_string(i)).c_str(), kCreate, 0, 0, b.Put()));
            levels.push_back(a);
        }
    }
    file = ContentOf(*bytes);
    for (unsigned i = 0; i < kLevels; ++i) {
        const std::size_t a = EntryOf("a" + std::to_string(i));
        const std::size_t b = EntryOf("b" + std::to_string(i));
        Set(b + kChild, Get(a + kChild));
    }
    const Outcome outcome = ExerciseAll(file, GetParam());
    EXPECT_EQ(STG_E_DOCFILECORRUPT, outcome.walked);
    EXPECT_EQ(2 * kLevels, outcome.tree.size());
    EXPECT_GT(20 * file.size(), outcome.moved);
}

TEST_P(HostileTest, NamesOutOfOrderAreFoundAllTheSame)
{
    // Swaps the names of two entries, so that the tree's order is wrong.
    const std::size_t a = EntryOf("e1");
    const std::size_t b = EntryOf("e8");
    std::swap_ranges(file.begin() + static_cast<std::ptrdiff_t>(a),
                     file.begin() + static_cast<std::ptrdiff_t>(a + 64),
                     file.begin() + static_cast<std::ptrdiff_t>(b));
    const auto bytes = LockBytesWith(file);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    Bytes content;
    for (unsigned i = 0; i < 10; ++i)
        EXPECT_EQ(S_OK, ReadStream(*root, "e" + std::to_string(i), &content)) << i;
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("e3")));
    EXPECT_TRUE(Examine(ContentOf(*bytes)).faults.empty());
}

// A storage whose elements are told from a list, since their names are out of order, and one of which hangs
// in the root as well and is destroyed there.
TEST_P(HostileTest, AnElementThatIsFreedThroughAnotherStorageIsNotTold)
{
    const std::size_t a = EntryOf("s1");
    const std::size_t b = EntryOf("s8");
    std::swap_ranges(file.begin() + static_cast<std::ptrdiff_t>(a),
                     file.begin() + static_cast<std::ptrdiff_t>(a + 64),
                     file.begin() + static_cast<std::ptrdiff_t>(b));
    const std::uint32_t shared = Get(EntryOf("storage") + kChild);  // which is "s5", in the middle
    const bool behind = Get(EntryOf("e9") + kRight) == kNoEntry;
    Set(behind ? EntryOf("e9") + kRight : EntryOf("storage") + kLeft, shared);
    const auto bytes = LockBytesWith(file);
    ComPtr<IStorage> root;
    ComPtr<IStorage> storage;
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    ASSERT_EQ(S_OK, root->OpenStorage(OLESTR("storage"), nullptr, kOpen, nullptr, 0, storage.Put()));
    ASSERT_EQ(S_OK, storage->EnumElements(0, nullptr, 0, elements.Put()));
    STATSTG stat{};
    ASSERT_EQ(S_OK, elements->Next(1, &stat, nullptr));
    ::CoTaskMemFree(stat.pwcsName);
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("s5")));
    HRESULT hr = S_OK;
    while ((hr = elements->Next(1, &stat, nullptr)) == S_OK) {
        EXPECT_NE(OleString(OLESTR("s5")), stat.pwcsName);
        ::CoTaskMemFree(stat.pwcsName);
    }
    EXPECT_EQ(STG_E_DOCFILECORRUPT, hr);
}

TEST_P(HostileTest, AnyChangedByteEndsInACode)
{
    const Bytes good = file;
    for (std::size_t at = 0; at < good.size();
         at += Stride() * (at < 76 ? 1 : kOneOf * (at < 512 ? 4 : 11))) {
        file = good;
        file[at] = static_cast<BYTE>(file[at] ^ (at % 3 == 0 ? 0xFF : 1 + at % 7));
        const HRESULT hr = Exercise();
        ASSERT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << at;
    }
}

TEST_P(HostileTest, AFileCutAnywhereEndsInACode)
{
    const Bytes good = file;
    for (std::size_t size = 0; size < good.size(); size += 97 * Stride()) {
        file.assign(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        const HRESULT hr = Exercise();
        ASSERT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << size;
    }
}

// What the entries of a storage's elements are linked to when a program makes a list of them.
enum class List { kToTheRight, kToTheLeft, kZigzag };

// A file whose root has `count` elements, in a list in place of a tree.
class ListFile {
public:
    ListFile(unsigned count, List direction, BYTE color) : count_(count)
    {
        ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes_.Get(), kCreate, root.Put()));
        for (unsigned i = 0; i < count; ++i)
            EXPECT_EQ(S_OK, WriteStream(*root, NameOf(i), ContentOf(i)));
        root.Reset();
        bytes_ = LockBytesWith(Relinked(quorvane::cfb::test::ContentOf(*bytes_), direction, color));
    }

    ILockBytes* Get() const { return bytes_.Get(); }
    Findings Look() const { return Examine(quorvane::cfb::test::ContentOf(*bytes_)); }
    static std::string NameOf(unsigned i) { return std::to_string(100000 + i); }
    static Bytes ContentOf(unsigned i) { return i % 97 == 0 ? Pattern(50, i) : Bytes(); }

private:
    // The entries of the elements in the order of their names, as offsets: names are digits of one length.
    std::vector<std::size_t> Entries(const Bytes& file) const
    {
        std::map<std::string, std::size_t> byName;
        for (std::size_t at = 512; at + 128 <= file.size(); at += 128) {
            if (file[at + 0x42] != 2 || file[at + 0x40] != 14 || file[at + 1] != 0)
                continue;
            std::string name;
            for (std::size_t i = 0; i < 12; i += 2)
                name += static_cast<char>(file[at + i]);
            byName[name] = at;
        }
        std::vector<std::size_t> entries;
        for (const auto& [name, at] : byName)
            entries.push_back(at);
        EXPECT_EQ(count_, entries.size());
        return entries;
    }

    // The numbers of the entries by their offsets: along the directory's chain.
    static std::map<std::size_t, std::uint32_t> Numbers(const Bytes& file)
    {
        std::map<std::size_t, std::uint32_t> numbers;
        std::uint32_t next = 0;
        for (std::uint32_t sector = LoadU32(&file[48]); sector != kEndOfChain;) {
            for (std::size_t at = 0; at < 512; at += 128)
                numbers[(std::size_t{sector} + 1) * 512 + at] = next++;
            const std::uint32_t fat = LoadU32(&file[76 + sector / 128 * 4]);
            sector = LoadU32(&file[(std::size_t{fat} + 1) * 512 + sector % 128 * 4]);
        }
        return numbers;
    }

    // The elements from the top of the list downwards.
    static std::vector<std::size_t> Downwards(const std::vector<std::size_t>& entries, List direction)
    {
        std::vector<std::size_t> order;
        for (std::size_t low = 0, high = entries.size(); low < high;) {
            const bool fromBelow =
                direction == List::kZigzag ? order.size() % 2 == 0 : direction == List::kToTheRight;
            order.push_back(fromBelow ? entries[low++] : entries[--high]);
        }
        return order;
    }

    Bytes Relinked(Bytes file, List direction, BYTE color) const
    {
        const std::vector<std::size_t> entries = Downwards(Entries(file), direction);
        const auto numbers = Numbers(file);
        const std::size_t root = (std::size_t{LoadU32(&file[48])} + 1) * 512;
        StoreU32(&file[root + kChild], numbers.at(entries[0]));
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const std::uint32_t next = i + 1 < entries.size() ? numbers.at(entries[i + 1]) : kNoEntry;
            const bool right = direction == List::kZigzag ? i % 2 == 0 : direction == List::kToTheRight;
            StoreU32(&file[entries[i] + kLeft], right ? kNoEntry : next);
            StoreU32(&file[entries[i] + kRight], right ? next : kNoEntry);
            file[entries[i] + 0x43] = color;
        }
        return file;
    }

    unsigned count_;
    ComPtr<ILockBytes> bytes_ = NewLockBytes();
};

INSTANTIATE_TEST_SUITE_P(Roads, HostileTest, ::testing::Values(Road::kLockBytes, Road::kFile));

// As when pages didn't reach the disk: the element's own entry did, and those below it didn't.
class TornElementTest : public ::testing::TestWithParam<Road> {
protected:
    static Bytes TornFile()
    {
        Session made(Road::kLockBytes);
        EXPECT_EQ(S_OK, made.Create(Layout::kVersion3));
        EXPECT_EQ(S_OK, Make(*made.root, "before", 10));
        EXPECT_EQ(S_OK, Make(*made.root, "torn", 40));
        made.Close();
        Bytes file = made.Content();
        unsigned unused = 0;
        for (std::size_t at = 512; at + 128 <= file.size(); at += 128) {
            if (file[at] != 't' || file[at + 2] == 'o' || file[at + 0x42] != 2)
                continue;
            std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(at), 128, BYTE{0});
            for (const std::size_t link : {kLeft, kRight, kChild})
                StoreU32(&file[at + link], kNoEntry);
            ++unused;
        }
        EXPECT_EQ(40u, unused);
        return file;
    }

    // An element with so many streams, whose names begin as its own does.
    static HRESULT Make(IStorage& root, const std::string& name, unsigned count)
    {
        ComPtr<IStorage> storage;
        HRESULT hr = root.CreateStorage(Wide(name).c_str(), kCreate, 0, 0, storage.Put());
        for (unsigned i = 0; i < count && SUCCEEDED(hr); ++i)
            hr = WriteStream(*storage, name[0] + std::to_string(i), Pattern(20 + i, i));
        return FAILED(hr) ? hr : storage->Commit(STGC_DEFAULT);
    }
    static void Expect(Tree* tree, const std::string& name, unsigned count)
    {
        (*tree)[name] = std::nullopt;
        for (unsigned i = 0; i < count; ++i)
            (*tree)[name + "/" + name[0] + std::to_string(i)] = Pattern(20 + i, i);
    }

    // Elements that take the entries to which the torn one leads.
    void Add()
    {
        for (unsigned i = 0; i < 12; ++i)
            EXPECT_EQ(S_OK, WriteStream(*session.root, "beside" + std::to_string(i), Pattern(200, i)));
        EXPECT_EQ(S_OK, Make(*session.root, "new", 30));
    }
    void ExpectAdded(unsigned inTorn)
    {
        Tree expected;
        Tree found;
        Expect(&expected, "before", 10);
        Expect(&expected, "new", 30);
        if (inTorn > 0)
            Expect(&expected, "torn", inTorn);
        for (unsigned i = 0; i < 12; ++i)
            expected["beside" + std::to_string(i)] = Pattern(200, i);
        session.Close();
        ASSERT_EQ(S_OK, session.Open(kRead));
        EXPECT_EQ(S_OK, Walk(*session.root, "", &found));
        EXPECT_EQ(expected, found);
        session.Close();
        EXPECT_EQ("", Text(Examine(session.Content()).faults));
    }

    Session session{GetParam(), TornFile()};
};

INSTANTIATE_TEST_SUITE_P(Roads, TornElementTest, ::testing::Values(Road::kLockBytes, Road::kFile));

TEST_P(TornElementTest, IsReplacedWhole)
{
    ASSERT_EQ(S_OK, session.Open(kOpen));
    EXPECT_EQ(S_OK, Make(*session.root, "torn", 3));
    Add();
    ExpectAdded(3);
}

TEST_P(TornElementTest, LeavesWhatTookItsEntriesWhenItIsReplaced)
{
    ASSERT_EQ(S_OK, session.Open(kOpen));
    Add();
    EXPECT_EQ(S_OK, Make(*session.root, "torn", 3));
    ExpectAdded(3);
}

TEST_P(TornElementTest, LeavesWhatTookItsEntriesWhenItIsDestroyed)
{
    ASSERT_EQ(S_OK, session.Open(kOpen));
    Add();
    EXPECT_EQ(S_OK, session.root->DestroyElement(OLESTR("torn")));
    ExpectAdded(0);
}

// What a process has learnt of a file outlives its closing, where the system tells whether others write it;
// of bytes, and on Windows, it has to meet all elements first.
TEST_P(TornElementTest, LeavesWhatTookItsEntriesInAnEarlierSession)
{
    ASSERT_EQ(S_OK, session.Open(kOpen));
    Add();
    session.Close();
    ASSERT_EQ(S_OK, session.Open(kOpen));
    constexpr bool kIsKeptInMind = std::filesystem::path::preferred_separator == '/';
    if (GetParam() == Road::kLockBytes || !kIsKeptInMind) {
        Tree met;
        EXPECT_EQ(STG_E_DOCFILECORRUPT, Walk(*session.root, "", &met));
    }
    EXPECT_EQ(S_OK, session.root->DestroyElement(OLESTR("torn")));
    ExpectAdded(0);
}

TEST(ListFileTest, AListInPlaceOfATreeIsPutRightWhenItIsChanged)
{
    constexpr unsigned kCount = 10'500;
    const ListFile list(kCount, List::kZigzag, 1);
    EXPECT_EQ(kCount, list.Look().depth);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(list.Get(), kOpen, root.Put()));
    ASSERT_EQ(S_OK, root->DestroyElement(Wide(ListFile::NameOf(kCount / 2)).c_str()));
    root.Reset();
    const Findings findings = list.Look();
    EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
    EXPECT_EQ(kCount - 1, findings.elements);
    EXPECT_LE(findings.depth, 28u);
}

// Whoever is killed in the midst of that leaves every element but the one that was to go, at the most.
TEST(ListFileTest, AListIsPutRightByOneWrite)
{
    constexpr unsigned kCount = 200;
    const ListFile list(kCount, List::kToTheRight, 1);
    const Bytes made = ContentOf(*list.Get());
    for (const Bytes& before : {made, WithItsRootBehindAll(made)}) {
        Session session(Road::kLockBytes, before);
        session.bytes->KeepLog();
        ASSERT_EQ(S_OK, session.Open(kOpen));
        ASSERT_EQ(S_OK, session.root->DestroyElement(Wide(ListFile::NameOf(kCount / 2)).c_str()));
        session.Close();
        MemoryStore state(before);
        for (const auto& write : session.bytes->Log()) {
            state.Apply(write);
            Session killed(Road::kLockBytes, state.bytes);
            Tree found;
            ASSERT_EQ(S_OK, killed.Open(kRead));
            ASSERT_EQ(S_OK, Walk(*killed.root, "", &found));
            found.erase(ListFile::NameOf(kCount / 2));
            ASSERT_EQ(kCount - 1, found.size());
            for (unsigned i = 0; i < kCount; ++i) {
                if (i != kCount / 2) {
                    ASSERT_EQ(ListFile::ContentOf(i), found[ListFile::NameOf(i)]);
                }
            }
        }
        EXPECT_LT(3u, session.bytes->Log().size());
    }
}

class AListInPlaceOfATree : public ::testing::TestWithParam<std::tuple<unsigned, List, BYTE>> {
protected:
    const unsigned count = std::get<0>(GetParam());
    const ListFile list{count, std::get<1>(GetParam()), std::get<2>(GetParam())};

    ComPtr<IStorage> Open()
    {
        ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, OpenDocfileOnLockBytes(list.Get(), kOpen, root.Put()));
        return root;
    }

    // All but the `gone` elements are there, in the order of their names.
    void ExpectAllBut(IStorage& root, const std::set<unsigned>& gone)
    {
        ComPtr<IEnumSTATSTG> elements;
        ASSERT_EQ(S_OK, root.EnumElements(0, nullptr, 0, elements.Put()));
        for (unsigned i = 0; i < count; ++i) {
            if (gone.contains(i))
                continue;
            STATSTG stat{};
            ASSERT_EQ(S_OK, elements->Next(1, &stat, nullptr)) << i;
            ASSERT_EQ(ListFile::NameOf(i), NarrowName(stat.pwcsName));
            ASSERT_EQ(ListFile::ContentOf(i).size(), stat.cbSize.QuadPart);
            CoTaskMemFree(stat.pwcsName);
        }
        STATSTG stat{};
        EXPECT_EQ(S_FALSE, elements->Next(1, &stat, nullptr));
    }

    void ExpectBalanced()
    {
        const Findings findings = list.Look();
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
        EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
        EXPECT_LE(findings.depth, 2 * std::bit_width(count) + 2);
    }
};

TEST_P(AListInPlaceOfATree, IsReadAsItStands)
{
    const auto root = Open();
    ExpectAllBut(*root, {});
    for (unsigned i = 0; i < count; i += count / 8) {
        Bytes content;
        EXPECT_EQ(S_OK, ReadStream(*root, ListFile::NameOf(i), &content));
        EXPECT_EQ(ListFile::ContentOf(i), content);
    }
}

TEST_P(AListInPlaceOfATree, IsPutRightWhenAnElementIsDestroyed)
{
    for (const unsigned i : {0u, 1u, count / 2, count - 1}) {
        const ListFile fresh(count, std::get<1>(GetParam()), std::get<2>(GetParam()));
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(fresh.Get(), kOpen, root.Put()));
        EXPECT_EQ(S_OK, root->DestroyElement(Wide(ListFile::NameOf(i)).c_str())) << i;
        ExpectAllBut(*root, {i});
        root.Reset();
        const Findings findings = fresh.Look();
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
        EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
        EXPECT_LE(findings.depth, 2 * std::bit_width(count) + 2) << i;
    }
}

TEST_P(AListInPlaceOfATree, IsPutRightWhenAnElementIsMade)
{
    auto root = Open();
    ASSERT_EQ(S_OK, WriteStream(*root, "1", {}));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("1")));
    ExpectAllBut(*root, {});
    root.Reset();
    ExpectBalanced();
}

TEST_P(AListInPlaceOfATree, IsPutRightWhenAnElementIsRenamed)
{
    auto root = Open();
    ASSERT_EQ(S_OK, root->RenameElement(Wide(ListFile::NameOf(2)).c_str(), OLESTR("x")));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("x")));
    ExpectAllBut(*root, {2});
    root.Reset();
    ExpectBalanced();
}

TEST_P(AListInPlaceOfATree, IsEmptiedFromItsEnumeration)
{
    auto root = Open();
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, root->EnumElements(0, nullptr, 0, elements.Put()));
    unsigned seen = 0;
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; ++seen) {
        ASSERT_EQ(S_OK, root->DestroyElement(stat.pwcsName)) << seen;
        CoTaskMemFree(stat.pwcsName);
    }
    EXPECT_EQ(count, seen);
    elements.Reset();
    root.Reset();
    const Findings findings = list.Look();
    EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
    EXPECT_EQ(0u, findings.elements);
}

INSTANTIATE_TEST_SUITE_P(HostileTest, AListInPlaceOfATree,
                         ::testing::Combine(::testing::Values(9u, 90u, 120u, 3000u / kOneOf, 12000u / kOneOf),
                                            ::testing::Values(List::kToTheRight, List::kToTheLeft),
                                            ::testing::Values(BYTE{0}, BYTE{1})));

}  // namespace
}  // namespace quorvane::cfb::test
