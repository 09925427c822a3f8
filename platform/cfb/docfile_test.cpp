// The published interfaces as a caller sees them.
#include "platform/cfb/docfile.h"

#include <gtest/gtest.h>

#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

class DocfileTest : public ::testing::Test {
protected:
    DocfileTest() { EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put())); }

    ComPtr<IStorage> MakeStorage(IStorage& parent, const std::string& name)
    {
        ComPtr<IStorage> storage;
        EXPECT_EQ(S_OK, parent.CreateStorage(Wide(name).c_str(), kCreate, 0, 0, storage.Put()));
        return storage;
    }

    std::vector<std::string> Names(IStorage& storage)
    {
        Tree tree;
        EXPECT_EQ(S_OK, Walk(storage, "", &tree));
        std::vector<std::string> names;
        for (const auto& [path, content] : tree)
            names.push_back(path);
        return names;
    }

    ComPtr<ILockBytes> bytes = NewLockBytes();
    ComPtr<IStorage> root;
};

TEST_F(DocfileTest, WhatIsWrittenIsInTheFileAtOnce)
{
    MakeStorage(*root, "s");
    ComPtr<IStorage> storage;
    ASSERT_EQ(S_OK, root->OpenStorage(OLESTR("s"), nullptr, kOpen, nullptr, 0, storage.Put()));
    ASSERT_EQ(S_OK, WriteStream(*storage, "a", Pattern(5000, 1)));

    ComPtr<IStorage> other;
    const auto copy = LockBytesWith(ContentOf(*bytes));
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(copy.Get(), kRead, other.Put()));
    Tree tree;
    EXPECT_EQ(S_OK, Walk(*other, "", &tree));
    EXPECT_EQ(Pattern(5000, 1), tree["s/a"]);
}

TEST_F(DocfileTest, CreateReplacesAStorageWithAllItsContent)
{
    ASSERT_EQ(S_OK, WriteStream(*MakeStorage(*root, "s"), "old", Pattern(5000, 1)));

    ASSERT_EQ(S_OK, WriteStream(*MakeStorage(*root, "s"), "new", Pattern(10, 2)));

    EXPECT_EQ((std::vector<std::string>{"s", "s/new"}), Names(*root));
    EXPECT_TRUE(Examine(ContentOf(*bytes)).leaks.empty());
}

TEST_F(DocfileTest, CreateReplacesAStreamByAStorage)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "x", Pattern(5000, 1)));
    MakeStorage(*root, "X");
    ComPtr<IStream> stream;
    EXPECT_EQ(STG_E_FILENOTFOUND, root->OpenStream(OLESTR("x"), nullptr, kRead, 0, stream.Put()));
}

TEST_F(DocfileTest, WithoutCreateAnElementOfThatNameIsLeftAlone)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(50, 1)));
    ComPtr<IStream> stream;
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, root->CreateStream(OLESTR("A"), kOpen, 0, 0, stream.Put()));
    Bytes content;
    ASSERT_EQ(S_OK, ReadStream(*root, "a", &content));
    EXPECT_EQ(Pattern(50, 1), content);
}

TEST_F(DocfileTest, NamesAreTheSameInUpperAndLowerCase)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "Contents", Pattern(50, 1)));
    Bytes content;
    EXPECT_EQ(S_OK, ReadStream(*root, "CONTENTS", &content));
    ComPtr<IStream> stream;
    const OLECHAR lower[] = {0x00E4, 0x03B1, 0x0436, 0};
    const OLECHAR upper[] = {0x00C4, 0x0391, 0x0416, 0};
    ASSERT_EQ(S_OK, root->CreateStream(lower, kCreate, 0, 0, stream.Put()));
    stream.Reset();
    EXPECT_EQ(S_OK, root->OpenStream(upper, nullptr, kRead, 0, stream.Put()));
}

TEST_F(DocfileTest, NamesThatTheFormatForbidsAreRefused)
{
    ComPtr<IStream> stream;
    for (const char* name : {"", "a/b", "a\\b", "a:b", "a!b", "12345678901234567890123456789012"})
        EXPECT_EQ(STG_E_INVALIDNAME, root->CreateStream(Wide(name).c_str(), kCreate, 0, 0, stream.Put()))
            << name;
    EXPECT_EQ(S_OK,
              root->CreateStream(OLESTR("1234567890123456789012345678901"), kCreate, 0, 0, stream.Put()));
}

TEST_F(DocfileTest, AnOpenElementCannotBeOpenedAgain)
{
    const auto storage = MakeStorage(*root, "s");
    ComPtr<IStorage> second;
    EXPECT_EQ(STG_E_ACCESSDENIED, root->OpenStorage(OLESTR("s"), nullptr, kOpen, nullptr, 0, second.Put()));
    EXPECT_FALSE(second);
    ComPtr<IStream> stream;
    ComPtr<IStream> again;
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_ACCESSDENIED, root->OpenStream(OLESTR("a"), nullptr, kRead, 0, again.Put()));
    stream.Reset();
    EXPECT_EQ(S_OK, root->OpenStream(OLESTR("a"), nullptr, kRead, 0, again.Put()));
}

TEST_F(DocfileTest, ElementsAreOpenedExclusivelyOrNotAtAll)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(50, 1)));
    ComPtr<IStream> stream;
    for (const DWORD mode :
         std::initializer_list<DWORD>{STGM_READ | STGM_SHARE_DENY_NONE, STGM_READ | STGM_SHARE_DENY_WRITE,
                                      kRead | STGM_TRANSACTED, kRead | STGM_CREATE, kRead | 3u})
        EXPECT_EQ(STG_E_INVALIDFLAG, root->OpenStream(OLESTR("a"), nullptr, mode, 0, stream.Put())) << mode;
}

TEST_F(DocfileTest, AReadOnlyRootGivesNothingToWrite)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(50, 1)));
    root.Reset();
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kRead, root.Put()));
    ComPtr<IStream> stream;
    EXPECT_EQ(STG_E_ACCESSDENIED, root->OpenStream(OLESTR("a"), nullptr, kOpen, 0, stream.Put()));
    EXPECT_EQ(STG_E_ACCESSDENIED, root->CreateStream(OLESTR("b"), kCreate, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_ACCESSDENIED, root->DestroyElement(OLESTR("a")));
    ASSERT_EQ(S_OK, root->OpenStream(OLESTR("a"), nullptr, kRead, 0, stream.Put()));
    ULONG written = 1;
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, written);
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->SetSize(Large(0)));
}

TEST_F(DocfileTest, ADestroyedElementIsRevertedForWhoeverHasItOpen)
{
    const auto storage = MakeStorage(*root, "s");
    const auto inner = MakeStorage(*storage, "inner");
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, inner->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));

    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("s")));

    ULONG count = 0;
    BYTE byte = 0;
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, stream->Read(&byte, 1, &count));
    EXPECT_EQ(STG_E_REVERTED, stream->Write(&byte, 1, &count));
    EXPECT_EQ(STG_E_REVERTED, inner->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(STG_E_REVERTED, storage->DestroyElement(OLESTR("inner")));
}

TEST_F(DocfileTest, ChildrenAreRevertedWithTheirReleasedParent)
{
    auto storage = MakeStorage(*root, "s");
    ComPtr<IStream> stream;
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, storage->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    ASSERT_EQ(S_OK, storage->EnumElements(0, nullptr, 0, elements.Put()));
    storage.Reset();
    ULARGE_INTEGER size = Large(10);
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, stream->SetSize(size));
    EXPECT_EQ(STG_E_REVERTED, elements->Next(1, &stat, nullptr));
    EXPECT_EQ(S_OK, root->OpenStorage(OLESTR("s"), nullptr, kOpen, nullptr, 0, storage.Put()));
}

TEST_F(DocfileTest, ElementsOutliveTheirReleasedRootAsReverted)
{
    const auto storage = MakeStorage(*root, "s");
    root.Reset();
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, storage->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(STG_E_REVERTED, storage->Commit(STGC_DEFAULT));
}

TEST_F(DocfileTest, EnumerationGoesOnOverElementsDestroyedBehindIt)
{
    for (unsigned i = 0; i < 100; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(i), Pattern(i * 100, i)));
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, root->EnumElements(0, nullptr, 0, elements.Put()));
    unsigned seen = 0;
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; ++seen) {
        EXPECT_EQ(S_OK, root->DestroyElement(stat.pwcsName));
        CoTaskMemFree(stat.pwcsName);
    }
    EXPECT_EQ(100u, seen);
    EXPECT_TRUE(Names(*root).empty());
}

TEST_F(DocfileTest, AnEnumeratorSkipsResetsAndClones)
{
    for (const char* name : {"a", "b", "c", "d"})
        ASSERT_EQ(S_OK, WriteStream(*root, name, {}));
    ComPtr<IEnumSTATSTG> elements;
    ComPtr<IEnumSTATSTG> clone;
    STATSTG stats[3]{};
    ULONG fetched = 0;
    ASSERT_EQ(S_OK, root->EnumElements(0, nullptr, 0, elements.Put()));
    ASSERT_EQ(S_OK, elements->Skip(2));
    ASSERT_EQ(S_OK, elements->Clone(clone.Put()));
    EXPECT_EQ(S_FALSE, elements->Next(3, stats, &fetched));
    ASSERT_EQ(2u, fetched);
    EXPECT_EQ("c", NarrowName(stats[0].pwcsName));
    EXPECT_EQ("d", NarrowName(stats[1].pwcsName));
    for (ULONG i = 0; i < fetched; ++i)
        CoTaskMemFree(stats[i].pwcsName);
    ASSERT_EQ(S_OK, clone->Next(1, stats, nullptr));
    EXPECT_EQ("c", NarrowName(stats[0].pwcsName));
    CoTaskMemFree(stats[0].pwcsName);
    ASSERT_EQ(S_OK, elements->Reset());
    EXPECT_EQ(S_FALSE, elements->Skip(5));
}

TEST_F(DocfileTest, StatTellsWhatWasSet)
{
    const auto storage = MakeStorage(*root, "s");
    const CLSID clsid = {0x12345678, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};
    const FILETIME time = {77, 99};
    ASSERT_EQ(S_OK, storage->SetClass(clsid));
    ASSERT_EQ(S_OK, storage->SetStateBits(0xFF00FF, 0x0F00FF));
    ASSERT_EQ(S_OK, root->SetElementTimes(OLESTR("s"), &time, nullptr, &time));
    STATSTG stat{};
    ASSERT_EQ(S_OK, storage->Stat(&stat, STATFLAG_DEFAULT));
    EXPECT_EQ("s", NarrowName(stat.pwcsName));
    CoTaskMemFree(stat.pwcsName);
    EXPECT_EQ(static_cast<DWORD>(STGTY_STORAGE), stat.type);
    EXPECT_TRUE(IsEqualCLSID(clsid, stat.clsid));
    EXPECT_EQ(0x0F00FFu, stat.grfStateBits);
    EXPECT_EQ(99u, stat.mtime.dwHighDateTime);
    EXPECT_EQ(77u, stat.ctime.dwLowDateTime);
    EXPECT_EQ(kOpen, stat.grfMode);
}

TEST_F(DocfileTest, SeekingStaysWithinTheNumbers)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    ULONG count = 0;
    ASSERT_EQ(S_OK, stream->Write("abc", 3, &count));
    LARGE_INTEGER move;
    ULARGE_INTEGER place;
    move.QuadPart = -2;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_END, &place));
    EXPECT_EQ(1u, place.QuadPart);
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(move, STREAM_SEEK_CUR, nullptr));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(move, 7, nullptr));
    char byte = 0;
    EXPECT_EQ(S_OK, stream->Read(&byte, 1, &count));
    EXPECT_EQ('b', byte);
}

TEST_F(DocfileTest, AGapReadsAsZeros)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "filler", Pattern(20000, 1)));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("filler")));
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    LARGE_INTEGER move;
    move.QuadPart = 9000;
    ULONG count = 0;
    ASSERT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    ASSERT_EQ(S_OK, stream->Write("x", 1, &count));
    stream.Reset();
    Bytes content;
    ASSERT_EQ(S_OK, ReadStream(*root, "a", &content));
    Bytes wanted(9001);
    wanted[9000] = 'x';
    EXPECT_EQ(wanted, content);
}

TEST_F(DocfileTest, AStreamBeyondTheFormatsLimitIsRefused)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->SetSize(Large(std::uint64_t{1} << 40)));
    LARGE_INTEGER move;
    move.QuadPart = std::int64_t{1} << 40;
    ULONG count = 0;
    ASSERT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->Write("x", 1, &count));
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(0u, stat.cbSize.QuadPart);
}

TEST_F(DocfileTest, ClonesSharePlaceAndContentThenGoTheirWays)
{
    ComPtr<IStream> stream;
    ComPtr<IStream> clone;
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("a"), kCreate, 0, 0, stream.Put()));
    ULONG count = 0;
    ASSERT_EQ(S_OK, stream->Write("abcdef", 6, &count));
    LARGE_INTEGER move;
    move.QuadPart = 2;
    ASSERT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    ASSERT_EQ(S_OK, stream->Clone(clone.Put()));
    char byte = 0;
    ASSERT_EQ(S_OK, stream->Read(&byte, 1, &count));
    stream.Reset();
    ASSERT_EQ(S_OK, clone->Read(&byte, 1, &count));
    EXPECT_EQ('c', byte);
}

TEST_F(DocfileTest, CopyToTakesAllButWhatIsExcluded)
{
    const auto from = MakeStorage(*root, "from");
    ASSERT_EQ(S_OK, WriteStream(*from, "a", Pattern(10, 1)));
    ASSERT_EQ(S_OK, WriteStream(*from, "b", Pattern(20, 2)));
    ASSERT_EQ(S_OK, WriteStream(*MakeStorage(*from, "inner"), "c", Pattern(70000, 3)));
    const auto to = MakeStorage(*root, "to");
    OleString excluded = Wide("B");
    OLECHAR* names[] = {excluded.data(), nullptr};
    ASSERT_EQ(S_OK, from->CopyTo(0, nullptr, names, to.Get()));
    EXPECT_EQ((std::vector<std::string>{"a", "inner", "inner/c"}), Names(*to));
    const auto flat = MakeStorage(*root, "flat");
    ASSERT_EQ(S_OK, from->CopyTo(1, &IID_IStorage, nullptr, flat.Get()));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), Names(*flat));
}

TEST_F(DocfileTest, CopyToTakesClassAndStateBitsOfEveryStorageAlong)
{
    constexpr CLSID kClass = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
    const auto from = MakeStorage(*root, "from");
    ASSERT_EQ(S_OK, from->SetClass(kClass));
    ASSERT_EQ(S_OK, from->SetStateBits(0x0F, ~DWORD{0}));
    ASSERT_EQ(S_OK, MakeStorage(*from, "inner")->SetStateBits(0x80000001, ~DWORD{0}));
    const auto to = MakeStorage(*root, "to");
    ASSERT_EQ(S_OK, to->SetStateBits(0xF0, ~DWORD{0}));

    ASSERT_EQ(S_OK, from->CopyTo(0, nullptr, nullptr, to.Get()));

    STATSTG stat{};
    ASSERT_EQ(S_OK, to->Stat(&stat, STATFLAG_NONAME));
    EXPECT_TRUE(IsEqualGUID(kClass, stat.clsid));
    EXPECT_EQ(0x0Fu, stat.grfStateBits);
    ComPtr<IStorage> inner;
    ASSERT_EQ(S_OK, to->OpenStorage(OLESTR("inner"), nullptr, kRead, nullptr, 0, inner.Put()));
    ASSERT_EQ(S_OK, inner->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(0x80000001u, stat.grfStateBits);
}

TEST_F(DocfileTest, AStorageIsNotCopiedIntoItself)
{
    const auto outer = MakeStorage(*root, "outer");
    const auto inner = MakeStorage(*outer, "inner");
    EXPECT_EQ(STG_E_ACCESSDENIED, outer->CopyTo(0, nullptr, nullptr, inner.Get()));
    EXPECT_EQ(STG_E_ACCESSDENIED, root->CopyTo(0, nullptr, nullptr, inner.Get()));
}

TEST_F(DocfileTest, AnElementMovesToAnotherFile)
{
    ASSERT_EQ(S_OK, WriteStream(*MakeStorage(*root, "s"), "a", Pattern(5000, 1)));
    auto otherBytes = NewLockBytes();
    ComPtr<IStorage> other;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(otherBytes.Get(), kCreate, other.Put()));
    ASSERT_EQ(S_OK, root->MoveElementTo(OLESTR("s"), other.Get(), OLESTR("moved"), STGMOVE_MOVE));
    EXPECT_EQ((std::vector<std::string>{"moved", "moved/a"}), Names(*other));
    EXPECT_TRUE(Names(*root).empty());
}

TEST_F(DocfileTest, RenamingKeepsContentAndRefusesNamesInUse)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(50, 1)));
    ASSERT_EQ(S_OK, WriteStream(*root, "b", Pattern(50, 2)));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, root->RenameElement(OLESTR("a"), OLESTR("B")));
    EXPECT_EQ(STG_E_FILENOTFOUND, root->RenameElement(OLESTR("x"), OLESTR("y")));
    EXPECT_EQ(S_OK, root->RenameElement(OLESTR("a"), OLESTR("A")));
    EXPECT_EQ(S_OK, root->RenameElement(OLESTR("A"), OLESTR("longer")));
    Bytes content;
    ASSERT_EQ(S_OK, ReadStream(*root, "longer", &content));
    EXPECT_EQ(Pattern(50, 1), content);
}

TEST_F(DocfileTest, WrongArgumentsAreNamed)
{
    ComPtr<IStream> stream;
    ComPtr<IStorage> storage;
    EXPECT_EQ(STG_E_INVALIDPOINTER, root->CreateStream(OLESTR("a"), kCreate, 0, 0, nullptr));
    EXPECT_EQ(STG_E_INVALIDPOINTER, root->CreateStream(nullptr, kCreate, 0, 0, stream.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, root->CreateStream(OLESTR("a"), kCreate, 1, 0, stream.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER,
              root->OpenStorage(OLESTR("a"), root.Get(), kOpen, nullptr, 0, storage.Put()));
    EXPECT_EQ(STG_E_INVALIDPOINTER, root->Stat(nullptr, 0));
    EXPECT_EQ(STG_E_INVALIDPOINTER, root->CopyTo(0, nullptr, nullptr, nullptr));
    EXPECT_EQ(STG_E_INVALIDFLAG,
              root->MoveElementTo(OLESTR("a"), root.Get(), OLESTR("b"), STGMOVE_SHALLOWCOPY));
    EXPECT_EQ(E_NOINTERFACE, root->QueryInterface(IID_IStream, stream.PutVoid()));
}

TEST_F(DocfileTest, FreedSpaceIsUsedAgain)
{
    for (unsigned i = 0; i < 20; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(i), Pattern(9000, i)));
    const std::size_t size = ContentOf(*bytes).size();
    for (unsigned round = 0; round < 50; ++round)
        ASSERT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(round % 20), Pattern(9000, round)));
    EXPECT_LE(ContentOf(*bytes).size(), size + 20000);
}

TEST_F(DocfileTest, SpaceFreedByAnEarlierSessionIsUsedAgain)
{
    for (unsigned i = 0; i < 200; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(i), Pattern(i % 2 != 0 ? 900 : 9000, i)));
    for (unsigned i = 0; i < 198; ++i)
        ASSERT_EQ(S_OK, root->DestroyElement(Wide("e" + std::to_string(i)).c_str()));
    root.Reset();
    const std::size_t size = ContentOf(*bytes).size();
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    for (unsigned i = 0; i < 150; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, "n" + std::to_string(i), Pattern(i % 2 != 0 ? 900 : 9000, i)));
    EXPECT_LE(ContentOf(*bytes).size(), size + 65536);
}

TEST_F(DocfileTest, WhereTheLastSmallStreamHasGoneThereIsRoomForTheNextSession)
{
    for (int session = 0; session < 3; ++session) {
        ASSERT_EQ(S_OK, WriteStream(*root, "small", Pattern(900, 1)));
        ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("small")));
        root.Reset();
        EXPECT_TRUE(Examine(ContentOf(*bytes)).leaks.empty()) << session;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    }
}

TEST_F(DocfileTest, TheRootHasNoNeighboursAndAnUnusedEntryNoLinks)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(10, 1)));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("a")));
    const Bytes file = ContentOf(*bytes);
    const auto numberAt = [&](std::size_t at) {
        return file[at] | file[at + 1] << 8 | file[at + 2] << 16 | DWORD{file[at + 3]} << 24;
    };
    constexpr DWORD kNone = 0xFFFFFFFF;
    const std::size_t directory = (numberAt(48) + 1) * 512;
    for (std::size_t entry = directory; entry < directory + 512; entry += 128) {
        const bool isRoot = entry == directory;
        ASSERT_EQ(isRoot ? 5 : 0, file[entry + 66]);
        EXPECT_EQ(kNone, numberAt(entry + 68));
        EXPECT_EQ(kNone, numberAt(entry + 72));
        EXPECT_EQ(kNone, numberAt(entry + 76));
    }
}

TEST_F(DocfileTest, BehindTheEndOfAnArrayOfBytesNothingIsRead)
{
    const auto small = LockBytesWith(Pattern(10, 1));
    BYTE byte = 0;
    ULONG count = 7;
    EXPECT_EQ(S_OK, small->ReadAt(Large(10), &byte, 1, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(S_OK, small->ReadAt(Large(9), &byte, 1, &count));
    EXPECT_EQ(1u, count);
}

TEST_F(DocfileTest, TheEndOfTheFileIsGivenBack)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "small", Pattern(100, 1)));
    const std::size_t size = ContentOf(*bytes).size();
    ASSERT_EQ(S_OK, WriteStream(*root, "large", Pattern(20'000'000, 1)));
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("large")));
    root.Reset();
    EXPECT_EQ(size, ContentOf(*bytes).size());
    const Findings findings = Examine(ContentOf(*bytes));
    EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
}

TEST_F(DocfileTest, AFileWithDifatSectorsIsSoundAndReadsBack)
{
    const Bytes content = Pattern(24'000'000, 5);
    ASSERT_EQ(S_OK, WriteStream(*root, "large", content));
    ASSERT_EQ(S_OK, WriteStream(*root, "small", Pattern(100, 1)));
    root.Reset();
    const Findings findings = Examine(ContentOf(*bytes));
    EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    Bytes found;
    ASSERT_EQ(S_OK, ReadStream(*root, "large", &found));
    EXPECT_TRUE(content == found);
}

TEST_F(DocfileTest, APartOfTheListOfFatSectorsIsGivenBack)
{
    ASSERT_EQ(S_OK, WriteStream(*root, "large", Pattern(8'000'000, 1)));
    for (unsigned i = 0; i < 6; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, std::to_string(i), Pattern(100'000, i)));
    for (unsigned i = 6; i-- > 0;) {
        ASSERT_EQ(S_OK, root->DestroyElement(Wide(std::to_string(i)).c_str()));
        ASSERT_EQ(S_OK, root->Commit(STGC_DEFAULT));
        const Findings findings = Examine(ContentOf(*bytes));
        EXPECT_EQ("", Text(findings.faults) + Text(findings.leaks)) << i;
    }
    EXPECT_GT(std::size_t{8'200'000}, ContentOf(*bytes).size());
}

TEST_F(DocfileTest, ElementsCanBeDeepButNotBottomless)
{
    std::vector<ComPtr<IStorage>> chain{root};
    HRESULT hr = S_OK;
    while (hr == S_OK && chain.size() < 2000) {
        ComPtr<IStorage> next;
        hr = chain.back()->CreateStorage(OLESTR("s"), kCreate, 0, 0, next.Put());
        if (hr == S_OK)
            chain.push_back(next);
    }
    EXPECT_EQ(STG_E_INVALIDFUNCTION, hr);
    EXPECT_GT(chain.size(), 200u);
    EXPECT_EQ(S_OK, root->DestroyElement(OLESTR("s")));
}

TEST(DocfileModeTest, OnlyTheModesOfDirectFilesAreKnown)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    for (const DWORD mode :
         std::initializer_list<DWORD>{STGM_CREATE | STGM_READ | STGM_SHARE_EXCLUSIVE,
                                      kCreate | STGM_TRANSACTED, STGM_CREATE | STGM_READWRITE, kOpen})
        EXPECT_EQ(STG_E_INVALIDFLAG, CreateDocfileOnLockBytes(bytes.Get(), mode, root.Put())) << mode;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    root.Reset();
    for (const DWORD mode : std::initializer_list<DWORD>{
             kOpen | STGM_CREATE, STGM_READWRITE | STGM_SHARE_DENY_WRITE, STGM_READ | STGM_SHARE_DENY_NONE,
             STGM_READWRITE | STGM_SHARE_DENY_NONE})
        EXPECT_EQ(STG_E_INVALIDFLAG, OpenDocfileOnLockBytes(bytes.Get(), mode, root.Put())) << mode;
}

TEST(DocfileModeTest, BytesThatAreNoCompoundFileAreToldApart)
{
    ComPtr<IStorage> root;
    auto bytes = LockBytesWith(Pattern(5000, 1));
    EXPECT_EQ(S_FALSE, IsDocfileOnLockBytes(bytes.Get()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    bytes = NewLockBytes();
    EXPECT_EQ(S_FALSE, IsDocfileOnLockBytes(bytes.Get()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
}

class DocfileOnDiskTest : public ::testing::Test {
protected:
    HRESULT Create(const std::string& name, IStorage** storage, DWORD mode = kCreate)
    {
        return CreateDocfile(Wide(directory.File(name)).c_str(), mode, storage);
    }
    HRESULT Open(const std::string& name, DWORD mode, IStorage** storage)
    {
        return OpenDocfile(Wide(directory.File(name)).c_str(), mode, storage);
    }

    ScratchDirectory directory;
    ComPtr<IStorage> root;
    ComPtr<IStorage> second;
};

TEST_F(DocfileOnDiskTest, AFileIsOpenedExclusivelyOnce)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", kOpen, second.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", kRead, second.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", STGM_READ | STGM_SHARE_DENY_WRITE, second.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Create("a", second.Put()));
    root.Reset();
    EXPECT_EQ(S_OK, IsDocfile(Wide(directory.File("a")).c_str()));
    EXPECT_EQ(S_OK, Open("a", kOpen, second.Put()));
}

TEST_F(DocfileOnDiskTest, ReadersMayShare)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    root.Reset();
    constexpr DWORD kShared = STGM_READ | STGM_SHARE_DENY_WRITE;
    ASSERT_EQ(S_OK, Open("a", kShared, root.Put()));
    EXPECT_EQ(S_OK, Open("a", kShared, second.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", kOpen, second.Put()));
}

TEST_F(DocfileOnDiskTest, AReaderThatWantsTheFileForItselfKeepsTheOthersOut)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    root.Reset();
    ASSERT_EQ(S_OK, Open("a", kRead, root.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", kRead, second.Put()));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Open("a", STGM_READ | STGM_SHARE_DENY_WRITE, second.Put()));
}

TEST_F(DocfileOnDiskTest, ATreatedFileKeepsItsBytesWhenTheSecondCreateIsRefused)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    ASSERT_EQ(S_OK, WriteStream(*root, "s", Pattern(9000, 1)));
    EXPECT_EQ(STG_E_SHAREVIOLATION, Create("a", second.Put()));
    Bytes content;
    ASSERT_EQ(S_OK, ReadStream(*root, "s", &content));
    EXPECT_EQ(Pattern(9000, 1), content);
}

TEST_F(DocfileOnDiskTest, MissingAndForeignFilesAreToldApart)
{
    EXPECT_EQ(STG_E_FILENOTFOUND, Open("none", kOpen, root.Put()));
    EXPECT_EQ(STG_E_PATHNOTFOUND, Open("none/none", kOpen, root.Put()));
    EXPECT_EQ(STG_E_PATHNOTFOUND, Create("none/none", root.Put()));
    EXPECT_EQ(STG_E_FILENOTFOUND, IsDocfile(Wide(directory.File("none")).c_str()));
    FILE* const file = std::fopen(directory.File("text").c_str(), "w");
    ASSERT_TRUE(file);
    std::fputs("no compound file", file);
    std::fclose(file);
    EXPECT_EQ(S_FALSE, IsDocfile(Wide(directory.File("text")).c_str()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, Open("text", kOpen, root.Put()));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, Create("text", root.Put(), kOpen));
    EXPECT_EQ(STG_E_INVALIDNAME, OpenDocfile(Wide(directory.File("")).c_str(), kRead, root.Put()));
    EXPECT_EQ(STG_E_INVALIDNAME, OpenDocfile(nullptr, kRead, root.Put()));
}

TEST_F(DocfileOnDiskTest, CreateReplacesAnyFile)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    ASSERT_EQ(S_OK, WriteStream(*root, "s", Pattern(90000, 1)));
    root.Reset();
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    root.Reset();
    EXPECT_EQ(1536u, std::filesystem::file_size(directory.File("a")));
}

TEST_F(DocfileOnDiskTest, TheRootsNameIsThePath)
{
    ASSERT_EQ(S_OK, Create("a", root.Put()));
    STATSTG stat{};
    ASSERT_EQ(S_OK, root->Stat(&stat, STATFLAG_DEFAULT));
    EXPECT_EQ(directory.File("a"), NarrowName(stat.pwcsName));
    CoTaskMemFree(stat.pwcsName);
}

TEST(MemoryLockBytesTest, OnlyNothingIsReadOrWrittenWithoutABuffer)
{
    const auto bytes = NewLockBytes();
    ULONG count = 7;
    EXPECT_EQ(STG_E_INVALIDPOINTER, bytes->WriteAt(Large(0), nullptr, 1, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(S_OK, bytes->WriteAt(Large(0), nullptr, 0, &count));
    EXPECT_EQ(S_OK, bytes->WriteAt(Large(0), "ab", 2, &count));
    EXPECT_EQ(STG_E_INVALIDPOINTER, bytes->ReadAt(Large(0), nullptr, 1, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(S_OK, bytes->ReadAt(Large(0), nullptr, 0, &count));
}

TEST(StreamStatTest, AStreamTellsTheModeThatItWasOpenedWith)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ComPtr<IStream> stream;
    STATSTG stat{};
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    ASSERT_EQ(S_OK, WriteStream(*root, "s", Pattern(70, 1)));
    for (const DWORD mode : {kRead, kOpen}) {
        ASSERT_EQ(S_OK, root->OpenStream(OLESTR("s"), nullptr, mode, 0, stream.Put()));
        ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
        EXPECT_EQ(mode, stat.grfMode);
        EXPECT_EQ(70u, stat.cbSize.QuadPart);
        stream.Reset();
    }
}

TEST(StreamStatTest, AStreamHasNoTimes)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    ASSERT_EQ(S_OK, WriteStream(*root, "s", Pattern(70, 1)));
    const Bytes before = ContentOf(*bytes);
    const FILETIME time = {77, 99};
    EXPECT_EQ(S_OK, root->SetElementTimes(OLESTR("s"), &time, nullptr, &time));
    root.Reset();
    EXPECT_TRUE(before == ContentOf(*bytes));
}

TEST(ReservedArgumentsTest, AreToBeNone)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ComPtr<IStorage> storage;
    ComPtr<IStream> stream;
    OLECHAR* none[] = {nullptr};
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    ASSERT_EQ(S_OK, root->CreateStorage(OLESTR("s"), kCreate, 0, 0, storage.Put()));
    storage.Reset();
    ASSERT_EQ(S_OK, WriteStream(*root, "t", {}));
    for (const auto& [first, second] : {std::pair<DWORD, DWORD>{1, 0}, {0, 1}}) {
        EXPECT_EQ(STG_E_INVALIDPARAMETER,
                  root->CreateStorage(OLESTR("new"), kCreate, first, second, storage.Put()));
        EXPECT_EQ(STG_E_INVALIDPARAMETER,
                  root->CreateStream(OLESTR("new"), kCreate, first, second, stream.Put()));
    }
    EXPECT_EQ(STG_E_INVALIDPARAMETER,
              root->OpenStorage(OLESTR("s"), root.Get(), kOpen, nullptr, 0, storage.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, root->OpenStorage(OLESTR("s"), nullptr, kOpen, none, 0, storage.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER,
              root->OpenStorage(OLESTR("s"), nullptr, kOpen, nullptr, 1, storage.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, root->OpenStream(OLESTR("t"), none, kOpen, 0, stream.Put()));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, root->OpenStream(OLESTR("t"), nullptr, kOpen, 1, stream.Put()));
    EXPECT_FALSE(storage || stream);
}

TEST(StorageCopyTest, AStorageThatSomebodyHasOpenIsCopiedToByNobodyElse)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ComPtr<IStorage> from;
    ComPtr<IStorage> target;
    ComPtr<IStorage> open;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    ASSERT_EQ(S_OK, root->CreateStorage(OLESTR("from"), kCreate, 0, 0, from.Put()));
    from.Reset();
    ASSERT_EQ(S_OK, root->CreateStorage(OLESTR("target"), kCreate, 0, 0, target.Put()));
    ASSERT_EQ(S_OK, target->CreateStorage(OLESTR("there"), kCreate, 0, 0, open.Put()));
    EXPECT_EQ(STG_E_ACCESSDENIED,
              root->MoveElementTo(OLESTR("from"), target.Get(), OLESTR("there"), STGMOVE_COPY));
    open.Reset();
    EXPECT_EQ(S_OK, root->MoveElementTo(OLESTR("from"), target.Get(), OLESTR("there"), STGMOVE_COPY));
}

// Whatever others are closed meanwhile, and whatever their numbers are.
TEST(OpenElementsTest, AnElementIsOpenUntilItIsClosed)
{
    constexpr unsigned kElements = 400;
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    for (unsigned i = 0; i < kElements; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, std::to_string(i), {}));
    const auto open = [&](unsigned i, ComPtr<IStream>& stream) {
        return root->OpenStream(Wide(std::to_string(i)).c_str(), nullptr, kOpen, 0, stream.Put());
    };
    std::map<unsigned, ComPtr<IStream>> streams;
    for (unsigned i = 0; i < kElements; i += 8)
        ASSERT_EQ(S_OK, open(i, streams[i]));
    for (unsigned last = kElements - 8; last > 0; last -= 16) {
        streams.erase(last);
        for (unsigned i = 0; i < kElements; i += 8) {
            ComPtr<IStream> again;
            EXPECT_EQ(streams.contains(i) ? STG_E_ACCESSDENIED : S_OK, open(i, again)) << i << ", " << last;
        }
        if (last < 16)
            break;
    }
}

TEST(StreamCopyTest, WhatWasReadAndWrittenIsTold)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ComPtr<IStream> from;
    ComPtr<IStream> to;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    ASSERT_EQ(S_OK, WriteStream(*root, "from", Pattern(150'000, 1)));
    ASSERT_EQ(S_OK, root->OpenStream(OLESTR("from"), nullptr, kRead, 0, from.Put()));
    ASSERT_EQ(S_OK, root->CreateStream(OLESTR("to"), kCreate, 0, 0, to.Put()));
    ULARGE_INTEGER read{};
    ULARGE_INTEGER written{};
    EXPECT_EQ(S_OK, from->CopyTo(to.Get(), Large(140'001), &read, &written));
    EXPECT_EQ(140'001u, read.QuadPart);
    EXPECT_EQ(140'001u, written.QuadPart);
    EXPECT_EQ(S_OK, from->CopyTo(to.Get(), Large(140'001), &read, &written));
    EXPECT_EQ(9'999u, read.QuadPart) << "up to the end";
    EXPECT_EQ(9'999u, written.QuadPart);
}

}  // namespace
}  // namespace quorvane::cfb::test
