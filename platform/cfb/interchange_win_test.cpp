// The system's structured storage beside ours: the same operations have the same results, and each reads what
// the other wrote.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

constexpr unsigned kSeries = 200;
constexpr DWORD kTime = 0x01D0'0000;                            // the upper half of times that operations set
constexpr DWORD kMake = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;  // what is there stays

// One of the two implementations.
struct Implementation {
    std::function<HRESULT(const OleString& path, IStorage** root)> create;
    std::function<HRESULT(const OleString& path, IStorage** root)> open;
};

Implementation Ours()
{
    return {[](const OleString& path, IStorage** root) { return CreateDocfile(path.c_str(), kCreate, root); },
            [](const OleString& path, IStorage** root) { return OpenDocfile(path.c_str(), kOpen, root); }};
}

Implementation TheSystems()
{
    return {[](const OleString& path, IStorage** root) {
                return ::StgCreateDocfile(path.c_str(), kCreate, 0, root);
            },
            [](const OleString& path, IStorage** root) {
                return ::StgOpenStorage(path.c_str(), nullptr, kOpen, nullptr, 0, root);
            }};
}

// What is told of an element.
struct Element {
    std::optional<Bytes> content;  // none: a storage
    CLSID clsid{};
    DWORD bits = 0;
    DWORD time = 0;  // of creation, where an operation has set it

    bool operator==(const Element& other) const
    {
        return content == other.content && IsEqualGUID(clsid, other.clsid) && bits == other.bits &&
               time == other.time;
    }
};

std::ostream& operator<<(std::ostream& out, const Element& element)
{
    if (element.content)
        return out << "stream of " << element.content->size() << " bytes";
    return out << "storage of class " << std::hex << element.clsid.Data1 << ", bits " << element.bits
               << ", time " << element.time;
}

using Elements = std::map<std::string, Element>;

HRESULT ReadElement(IStorage& storage, const STATSTG& stat, const std::string& path, Elements* elements);

HRESULT ReadElements(IStorage& storage, const std::string& prefix, Elements* elements)
{
    STATSTG own{};
    HRESULT hr = storage.Stat(&own, STATFLAG_NONAME);
    if (FAILED(hr))
        return hr;
    const bool timed = own.ctime.dwHighDateTime == kTime;
    (*elements)[prefix] = {std::nullopt, own.clsid, own.grfStateBits, timed ? own.ctime.dwLowDateTime : 0};
    ComPtr<IEnumSTATSTG> all;
    hr = storage.EnumElements(0, nullptr, 0, all.Put());
    while (SUCCEEDED(hr)) {
        STATSTG stat{};
        hr = all->Next(1, &stat, nullptr);
        if (hr != S_OK)
            return hr == S_FALSE ? S_OK : hr;
        hr = ReadElement(storage, stat, prefix + "/" + ToUtf8(OleString(stat.pwcsName)), elements);
        CoTaskMemFree(stat.pwcsName);
    }
    return hr;
}

HRESULT ReadElement(IStorage& storage, const STATSTG& stat, const std::string& path, Elements* elements)
{
    if (stat.type == STGTY_STORAGE) {
        ComPtr<IStorage> child;
        const HRESULT hr = storage.OpenStorage(stat.pwcsName, nullptr, kOpen, nullptr, 0, child.Put());
        return FAILED(hr) ? hr : ReadElements(*child, path, elements);
    }
    ComPtr<IStream> stream;
    Bytes content;
    HRESULT hr = storage.OpenStream(stat.pwcsName, nullptr, kOpen, 0, stream.Put());
    if (SUCCEEDED(hr))
        hr = ReadAll(*stream, &content);
    EXPECT_EQ(content.size(), stat.cbSize.QuadPart) << path;
    (*elements)[path] = {content};
    return hr;
}

// An operation in words, and on a root. Storages are named by paths: the root by an empty one.
struct Operation {
    std::string what;
    std::function<HRESULT(IStorage& root)> run;
    // For a system that renames elements and leaves the length of their old names.
    std::function<HRESULT(IStorage& root)> byHand = nullptr;
    // Causes that may hold together: which of them is told is open.
    std::vector<HRESULT> causes = {};
    bool reopens = false;

    bool Agree(HRESULT one, HRESULT other) const
    {
        const auto isCause = [&](HRESULT hr) { return std::count(causes.begin(), causes.end(), hr) > 0; };
        return one == other || (isCause(one) && isCause(other));
    }
};

std::size_t SizeOf(IStream& stream)
{
    STATSTG stat{};
    EXPECT_EQ(S_OK, stream.Stat(&stat, STATFLAG_NONAME));
    return static_cast<std::size_t>(stat.cbSize.QuadPart);
}

// What MoveElementTo is documented to do, for a system whose own doesn't.
HRESULT MoveByHand(IStorage& from, LPCOLESTR name, IStorage& to, LPCOLESTR newName, DWORD flags)
{
    ComPtr<IStream> stream;
    ComPtr<IStorage> storage;
    HRESULT hr = from.OpenStream(name, nullptr, kOpen, 0, stream.Put());
    if (SUCCEEDED(hr)) {
        ComPtr<IStream> copy;
        hr = to.CreateStream(newName, kCreate, 0, 0, copy.Put());
        if (SUCCEEDED(hr))
            hr = stream->CopyTo(copy.Get(), Large(~std::uint64_t{0}), nullptr, nullptr);
    } else if (hr == STG_E_FILENOTFOUND) {
        hr = from.OpenStorage(name, nullptr, kOpen, nullptr, 0, storage.Put());
        ComPtr<IStorage> copy;
        if (SUCCEEDED(hr))
            hr = to.OpenStorage(newName, nullptr, kOpen, nullptr, 0, copy.Put());
        if (hr == STG_E_FILENOTFOUND && storage)
            hr = to.CreateStorage(newName, kCreate, 0, 0, copy.Put());
        if (SUCCEEDED(hr))
            hr = storage->CopyTo(0, nullptr, nullptr, copy.Get());
    }
    stream.Reset();
    storage.Reset();
    return SUCCEEDED(hr) && flags == STGMOVE_MOVE ? from.DestroyElement(name) : hr;
}

bool Has(IStorage& storage, LPCOLESTR name)
{
    ComPtr<IStream> stream;
    ComPtr<IStorage> child;
    return SUCCEEDED(storage.OpenStream(name, nullptr, kOpen, 0, stream.Put())) ||
           SUCCEEDED(storage.OpenStorage(name, nullptr, kOpen, nullptr, 0, child.Put()));
}

// Leaves to the system what it refuses.
HRESULT RenameByHand(IStorage& storage, LPCOLESTR from, LPCOLESTR to)
{
    const bool refused = !Has(storage, from) || Has(storage, to);
    return refused ? storage.RenameElement(from, to) : MoveByHand(storage, from, storage, to, STGMOVE_MOVE);
}

// Chooses operations by chance among few names, so that elements meet, are missing, and are of the other
// kind.
class Chooser {
public:
    explicit Chooser(std::uint32_t seed) : random_(seed) {}

    Operation Choose()
    {
        if (chosen_++ < kMadeFirst)
            return chosen_ % 2 != 0 ? MakeStorage() : MakeStream();
        switch (Number(20)) {
            case 0:
            case 1:
            case 2:
            case 3:
            case 4:
                return MakeStream();
            case 5:
            case 6:
            case 7:
                return MakeStorage();
            case 8:
            case 9:
            case 10:
                return WriteStream();
            case 11:
                return SetSize();
            case 12:
            case 13:
                return Rename();
            case 14:
            case 15:
                return Move();
            case 16:
                return Copy();
            case 17:
            case 18:
                return Destroy();
            default:
                return Number(4) == 0 ? Reopen() : Describe();
        }
    }

private:
    static constexpr const char* kNames[] = {
        "a",       "B", "c2", "d3", "\xC3\xA4\xC3\xB6", "\x05Summary", "a name that has its 31 letters.",
        "Contents"};
    static constexpr const char* kStorages[] = {"s", "S2", "\xD0\xB6"};

    unsigned Number(unsigned below) { return static_cast<unsigned>(random_() % below); }
    // Around the borders of mini sectors, sectors and of the mini stream.
    std::size_t Size()
    {
        constexpr unsigned kMost[] = {2, 66, 66, 600, 4098, 9000};
        return Number(kMost[Number(std::size(kMost))]);
    }
    std::string Name() { return kNames[Number(std::size(kNames))]; }
    std::string StorageName() { return kStorages[Number(std::size(kStorages))]; }
    std::string AnyName() { return Number(6) == 0 ? StorageName() : Name(); }
    // The root, or a storage one or two below it.
    std::string Place()
    {
        std::string place;
        for (unsigned depth = Number(3); depth > 0; --depth)
            place += (place.empty() ? "" : "/") + StorageName();
        return place;
    }
    DWORD MakeMode() { return Number(3) == 0 ? kMake : kCreate; }

    Operation MakeStream()
    {
        const std::string place = Place();
        const std::string name = AnyName();
        const DWORD mode = MakeMode();
        const Bytes content = Pattern(Size(), Number(1000));
        return {"make stream " + place + "/" + name + (mode == kMake ? ", new" : ""), [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        ComPtr<IStream> stream;
                        const HRESULT hr =
                            storage.CreateStream(FromUtf8(name).c_str(), mode, 0, 0, stream.Put());
                        return FAILED(hr) ? hr : WriteAt(*stream, 0, content);
                    });
                }};
    }

    Operation MakeStorage()
    {
        const std::string place = Place();
        const std::string name = Number(5) == 0 ? Name() : StorageName();
        const DWORD mode = MakeMode();
        return {"make storage " + place + "/" + name + (mode == kMake ? ", new" : ""), [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        ComPtr<IStorage> made;
                        return storage.CreateStorage(FromUtf8(name).c_str(), mode, 0, 0, made.Put());
                    });
                }};
    }

    template <class Use>
    Operation OnStream(const std::string& what, const Use& use)
    {
        const std::string place = Place();
        const std::string name = AnyName();
        return {what + place + "/" + name, [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        ComPtr<IStream> stream;
                        const HRESULT hr =
                            storage.OpenStream(FromUtf8(name).c_str(), nullptr, kOpen, 0, stream.Put());
                        return FAILED(hr) ? hr : use(*stream);
                    });
                }};
    }

    // Nowhere behind the end: what nobody has written there is undefined. So it is with a greater size.
    Operation WriteStream()
    {
        const std::size_t offset = Number(2) == 0 ? 0 : Size();
        const Bytes content = Pattern(Size(), Number(1000));
        return OnStream(
            "write " + std::to_string(content.size()) + " at " + std::to_string(offset) + " of ",
            [=](IStream& stream) { return WriteAt(stream, std::min(offset, SizeOf(stream)), content); });
    }

    Operation SetSize()
    {
        const std::size_t size = Size();
        return OnStream("set size " + std::to_string(size) + " of ", [=](IStream& stream) {
            const std::size_t before = SizeOf(stream);
            const HRESULT hr = stream.SetSize(Large(size));
            return FAILED(hr) || size <= before ? hr : WriteAt(stream, before, Pattern(size - before, 7));
        });
    }

    Operation Rename()
    {
        const std::string place = Place();
        const std::string from = AnyName();
        std::string to = AnyName();
        while (to == from)
            to = AnyName();
        const auto in = [=](const auto& rename) {
            return [=](IStorage& root) {
                return InStorage(root, place, [&](IStorage& storage) {
                    return rename(storage, FromUtf8(from).c_str(), FromUtf8(to).c_str());
                });
            };
        };
        return {"rename " + place + "/" + from + " to " + to,
                in([](IStorage& storage, LPCOLESTR old, LPCOLESTR fresh) {
                    return storage.RenameElement(old, fresh);
                }),
                in(RenameByHand),
                {STG_E_FILENOTFOUND, STG_E_FILEALREADYEXISTS}};
    }

    // Between the root and a storage in it.
    Operation Move()
    {
        const std::string place = StorageName();
        const std::string name = Name();
        const std::string newName = Name();
        const DWORD flags = Number(2) == 0 ? STGMOVE_MOVE : STGMOVE_COPY;
        const bool down = Number(2) == 0;
        return {(flags == STGMOVE_MOVE ? "move " : "copy ") + name + (down ? " into " : " out of ") + place +
                    " as " + newName,
                [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        IStorage& from = down ? root : storage;
                        IStorage& to = down ? storage : root;
                        const OleString old = FromUtf8(name);
                        const OleString fresh = FromUtf8(newName);
                        const HRESULT hr = from.MoveElementTo(old.c_str(), &to, fresh.c_str(), flags);
                        return hr == E_NOTIMPL ? MoveByHand(from, old.c_str(), to, fresh.c_str(), flags) : hr;
                    });
                }};
    }

    // All of a storage in the root into another one there.
    Operation Copy()
    {
        const std::string from = StorageName();
        const std::string to = Name();
        return {"copy all of " + from + " into " + to, [=](IStorage& root) {
                    return InStorage(root, from, [&](IStorage& source) {
                        return InStorage(root, to, [&](IStorage& target) {
                            return source.CopyTo(0, nullptr, nullptr, &target);
                        });
                    });
                }};
    }

    Operation Destroy()
    {
        const std::string place = Place();
        const std::string name = AnyName();
        return {"destroy " + place + "/" + name, [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        return storage.DestroyElement(FromUtf8(name).c_str());
                    });
                }};
    }

    // Class, state bits and times of a storage.
    Operation Describe()
    {
        const std::string place = Place();
        const DWORD value = Number(100'000);
        const DWORD mask = Number(2) == 0 ? ~DWORD{0} : 0xFFF;
        const unsigned kind = Number(3);
        constexpr const char* kKinds[] = {"class", "state bits", "times"};
        return {std::string("set ") + kKinds[kind] + " of " + place + "/", [=](IStorage& root) {
                    return InStorage(root, place, [&](IStorage& storage) {
                        if (kind == 0)
                            return storage.SetClass(CLSID{value, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}});
                        const FILETIME time{value, kTime};
                        return kind == 1 ? storage.SetStateBits(value, mask)
                                         : storage.SetElementTimes(nullptr, &time, nullptr, &time);
                    });
                }};
    }

    static Operation Reopen()
    {
        Operation operation{"reopen", nullptr};
        operation.reopens = true;
        return operation;
    }

    static constexpr unsigned kMadeFirst = 12;

    std::mt19937 random_;
    unsigned chosen_ = 0;
};

// One file under one implementation.
class Side {
public:
    Side(Implementation implementation, const std::string& path)
        : implementation_(std::move(implementation)), path_(FromUtf8(path))
    {
        EXPECT_EQ(S_OK, implementation_.create(path_, root_.Put()));
    }

    HRESULT Run(const Operation& operation)
    {
        if (operation.reopens)
            return Reopen();
        return renamesByHand && operation.byHand ? operation.byHand(*root_) : operation.run(*root_);
    }
    void Close() { root_.Reset(); }

    const OleString& Path() const { return path_; }

    bool renamesByHand = false;

private:
    HRESULT Reopen()
    {
        Close();
        return implementation_.open(path_, root_.Put());
    }

    Implementation implementation_;
    OleString path_;
    ComPtr<IStorage> root_;
};

class InterchangeTest : public ::testing::Test {
protected:
    static Elements ReadBy(const Implementation& reader, const Side& side)
    {
        Elements elements;
        ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, reader.open(side.Path(), root.Put()));
        if (!root)
            return elements;
        EXPECT_EQ(S_OK, ReadElements(*root, "", &elements));
        return elements;
    }

    // What the system's storage does. Wine's says that state bits and times were set and keeps neither, and
    // in an element's entry it leaves the length of the name that the element had before it was renamed.
    void AskTheSystem()
    {
        const OleString path = FromUtf8(directory.File("asked"));
        const FILETIME time{7, kTime};
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, TheSystems().create(path, root.Put()));
        ASSERT_EQ(S_OK, root->SetStateBits(5, ~DWORD{0}));
        ASSERT_EQ(S_OK, root->SetElementTimes(nullptr, &time, nullptr, nullptr));
        ASSERT_EQ(S_OK, WriteStream(*root, "before", Bytes(9)));
        ASSERT_EQ(S_OK, root->RenameElement(OLESTR("before"), OLESTR("it is another")));
        root.Reset();
        STATSTG stat{};
        ASSERT_EQ(S_OK, TheSystems().open(path, root.Put()));
        ASSERT_EQ(S_OK, root->Stat(&stat, STATFLAG_NONAME));
        keepsBits = stat.grfStateBits == 5;
        keepsTimes = stat.ctime.dwHighDateTime == kTime;
        root.Reset();
        ASSERT_EQ(S_OK, Ours().open(path, root.Put()));
        renamesWell = Has(*root, OLESTR("it is another"));
    }

    // What both keep.
    Elements Shared(Elements elements) const
    {
        for (auto& [path, element] : elements) {
            element.bits = keepsBits ? element.bits : 0;
            element.time = keepsTimes ? element.time : 0;
        }
        return elements;
    }

    void RunSeries(std::uint32_t seed)
    {
        Side ours(Ours(), directory.File("ours"));
        Side theirs(TheSystems(), directory.File("theirs"));
        theirs.renamesByHand = !renamesWell;
        Chooser chooser(seed);
        for (unsigned step = 0; step < 30 + seed % 20 && !HasFailure(); ++step) {
            const Operation operation = chooser.Choose();
            const HRESULT expected = theirs.Run(operation);
            const HRESULT mine = ours.Run(operation);
            EXPECT_TRUE(operation.Agree(expected, mine))
                << std::hex << "step " << step << ", " << operation.what << ": the system's 0x"
                << static_cast<std::uint32_t>(expected) << ", ours 0x" << static_cast<std::uint32_t>(mine);
            succeeded += SUCCEEDED(expected) ? 1 : 0;
            failed += FAILED(expected) ? 1 : 0;
        }
        ours.Close();
        theirs.Close();
        const Elements elements = Shared(ReadBy(TheSystems(), theirs));
        EXPECT_EQ(elements, Shared(ReadBy(Ours(), theirs)));
        EXPECT_EQ(elements, Shared(ReadBy(TheSystems(), ours)));
        EXPECT_EQ(elements, Shared(ReadBy(Ours(), ours)));
        most = std::max(most, elements.size());
    }

    const ScratchDirectory directory;
    unsigned succeeded = 0;
    unsigned failed = 0;
    std::size_t most = 0;
    bool keepsBits = true;
    bool keepsTimes = true;
    bool renamesWell = true;
};

TEST_F(InterchangeTest, AnySeriesHasTheSameResultsAndLeavesFilesThatTheOtherReads)
{
    AskTheSystem();
    for (std::uint32_t seed = 1; seed <= kSeries && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RunSeries(seed);
    }
    EXPECT_LT(2000u, succeeded);
    EXPECT_LT(500u, failed);
    EXPECT_LT(12u, most);
}

}  // namespace
}  // namespace quorvane::cfb::test
