// Writes that are refused: the file stays as it was before or as it is after the operation, and work goes on.
#include <gtest/gtest.h>

#include <tuple>

#include "platform/cfb/testing/file_faults.h"
#include "platform/cfb/testing/interrupted.h"
#include "platform/cfb/testing/series.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

// Something of everything: elements made so that the directory, the mini stream and the FAT grow, streams
// that become long and short, and all of it away again.
std::vector<Step> Series()
{
    std::vector<Step> steps{MakeStream("held"), WriteHeld("held", 0, Pattern(300, 1)), MakeStorage("box"),
                            MakeStorage("box/inner"), MakeStorage("copies")};
    const auto add = [&](std::initializer_list<Step> more) { steps.insert(steps.end(), more); };
    for (unsigned i = 0; i < 24; ++i) {
        const std::string path = (i % 3 == 0 ? "" : "box/") + std::string("e") + std::to_string(i * 7 % 24);
        add({MakeStream(path), Write(path, 0, Pattern(1 + i * i * 11, i))});
    }
    add({Write("box/e7", 0, Pattern(4095, 3)),
         Write("box/e7", 4095, Pattern(1, 4)),
         Write("box/e7", 4096, Pattern(30'000, 5)),
         SetSize("box/e7", 9'000),
         SetSize("box/e7", 4'000),
         WriteHeld("held", 300, Pattern(20'000, 6)),
         Write("e0", 5'000, Pattern(9, 7)),
         SetSize("e0", 40'000),
         MakeStream("box/inner/long"),
         Write("box/inner/long", 0, Pattern(60'000, 8)),
         Write("box/inner/long", 100, Pattern(50'000, 9)),
         SetClass("box/inner"),
         CopyTo("box", "copies"),
         Rename("box/inner", "a name that is quite another"),
         Move("e0", "copies"),
         WriteHeld("held", 7, Pattern(90, 10)),
         Destroy("copies/inner"),
         Commit(),
         MakeStorage("copies"),
         SetHeldSize("held", 0)});
    for (unsigned i = 0; i < 24; i += 2) {
        const unsigned made = i % 3 == 0 ? i * 7 % 24 : 0;
        if (made != 0)
            add({Destroy("e" + std::to_string(made))});
    }
    add({Destroy("box"), WriteHeld("held", 0, Pattern(5'000, 11)), Commit()});
    return steps;
}

// Where reads and writes can be refused.
std::vector<Road> RefusingRoads()
{
    return FileFaults::Exist() ? std::vector{Road::kLockBytes, Road::kFile} : std::vector{Road::kLockBytes};
}

enum class Refusal { kOneWrite, kAllWrites, kOneRead };

class RefusalTest : public ::testing::TestWithParam<std::tuple<Layout, Refusal, Road>> {
protected:
    // A file that the series begins with, and what is in it.
    struct Begin {
        Bytes file;
        Tree tree;
    };

    static Begin MakeBegin(const std::vector<Step>& steps)
    {
        Session session(Road::kLockBytes);
        Begin begin;
        EXPECT_EQ(S_OK, session.Create(std::get<Layout>(GetParam())));
        for (const Step& step : steps) {
            EXPECT_EQ(S_OK, step.run(session)) << step.what;
            step.apply(begin.tree);
        }
        session.Close();
        begin.file = session.Content();
        return begin;
    }

    // What a program that opens the file now would find.
    static void ReadAnew(const Session& session, Tree* tree)
    {
        ComPtr<IStorage> root;
        const auto copy = LockBytesWith(session.Content());
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(copy.Get(), kRead, root.Put()));
        ASSERT_EQ(S_OK, Walk(*root, "", tree));
        const Findings findings = Examine(session.Content());
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    }

    // The content is the one before the step or the one after it, but for what it leaves open.
    static void ExpectBetween(const Tree& found, const Tree& before, const Tree& after, const Step& step)
    {
        EXPECT_TRUE(IsSameBut(step.loose, found, before) || IsSameBut(step.loose, found, after));
        for (const auto& [path, content] : found) {
            const auto old = before.find(path);
            const auto fresh = after.find(path);
            const bool was = old != before.end();
            const bool will = fresh != after.end();
            bool fits = was || will;
            if (was && will && content)
                fits = IsMixture(*content, *old->second, *fresh->second) ||
                       (step.replaces && IsBeginning(content, fresh->second));
            else if (will && !was)
                fits = IsBeginning(content, fresh->second);
            EXPECT_TRUE(fits) << path;
        }
    }

    // The same elements with the same content, but for those whose paths begin with `loose`.
    static bool IsSameBut(const std::string& loose, const Tree& a, const Tree& b)
    {
        const auto holdsAllOf = [&](const Tree& tree, const Tree& other) {
            return std::all_of(other.begin(), other.end(), [&](const auto& one) {
                if (one.first.compare(0, loose.size(), loose) == 0)
                    return true;
                const auto same = tree.find(one.first);
                return same != tree.end() && same->second == one.second;
            });
        };
        return holdsAllOf(a, b) && holdsAllOf(b, a);
    }

    static bool IsBeginning(const std::optional<Bytes>& content, const std::optional<Bytes>& whole)
    {
        if (!content || !whole)
            return content == whole;
        return content->size() <= whole->size() &&
               std::equal(content->begin(), content->end(), whole->begin());
    }

    // Of one length of the two, and with each byte from one of them.
    static bool IsMixture(const Bytes& content, const Bytes& a, const Bytes& b)
    {
        if (content == a || content == b)
            return true;
        if (content.size() != a.size() && content.size() != b.size())
            return false;
        for (std::size_t i = 0; i < content.size(); ++i) {
            if ((i >= a.size() || content[i] != a[i]) && (i >= b.size() || content[i] != b[i]))
                return false;
        }
        return true;
    }

    static Tree After(Tree tree, const Step& step)
    {
        step.apply(tree);
        return tree;
    }

    // A refused step, after which writing works again: the same object goes on with the series.
    static void GoOn(Session& session, const std::vector<Step>& steps, std::size_t at, Tree tree)
    {
        for (; at < steps.size(); ++at) {
            const HRESULT hr = steps[at].run(session);
            ASSERT_EQ(S_OK, hr) << steps[at].what << " after a refusal";
            steps[at].apply(tree);
        }
        session.Close();
        Tree found;
        ReadAnew(session, &found);
        EXPECT_TRUE(found == tree);
    }

    // A refused step, after which no write works: what is read stays, what would write fails.
    static void EndReadOnly(Session& session, const std::vector<Step>& steps, std::size_t at,
                            const Tree& content)
    {
        Tree found;
        const HRESULT walked = Walk(*session.root, "", &found);
        EXPECT_TRUE(walked == S_OK || (walked == STG_E_ACCESSDENIED && session.held));
        for (const auto& [path, stream] : content) {
            if (path == "held" && session.held)
                continue;  // it is open already
            EXPECT_EQ(stream, found[path]) << path;
        }
        for (; at < steps.size(); ++at) {
            const HRESULT hr = steps[at].run(session);
            EXPECT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << steps[at].what;
        }
        session.Close();
        Tree end;
        ReadAnew(session, &end);
        EXPECT_TRUE(content == end);
    }

    // A write or read of a step was refused, which ended with `hr`.
    static void EndRefused(Session& session, const std::vector<Step>& steps, std::size_t at,
                           const Tree& before, HRESULT hr)
    {
        const Tree after = After(before, steps[at]);
        Tree found;
        ReadAnew(session, &found);
        ExpectBetween(found, before, after, steps[at]);
        STATSTG stat{};
        if (session.root)
            (void)session.root->Stat(&stat, STATFLAG_NONAME);  // told what a release had no way to tell
        const bool done = hr == S_OK || (found == after && found != before);
        if (std::get<Refusal>(GetParam()) == Refusal::kAllWrites)
            EndReadOnly(session, steps, at + 1, found);
        else
            GoOn(session, steps, at + (done ? 1 : 0), done ? after : before);
    }

    // Runs the series with the refusal of a write or read, counted from 0. False when it is over without one.
    static bool RunRefusing(const Begin& begin, const std::vector<Step>& steps, std::size_t access)
    {
        Session session(std::get<Road>(GetParam()), begin.file);
        EXPECT_EQ(S_OK, session.Open(kOpen));
        if (std::get<Refusal>(GetParam()) == Refusal::kOneRead)
            session.RefuseRead(access);
        else
            session.RefuseWrite(access, std::get<Refusal>(GetParam()) == Refusal::kAllWrites);
        Tree before = begin.tree;
        for (std::size_t at = 0; at < steps.size(); ++at) {
            SCOPED_TRACE(steps[at].what + ", access " + std::to_string(access));
            const HRESULT hr = steps[at].run(session);
            if (session.HasRefused()) {
                EndRefused(session, steps, at, before, hr);
                return true;
            }
            EXPECT_EQ(S_OK, hr);
            steps[at].apply(before);
        }
        session.Close();
        Tree found;
        ReadAnew(session, &found);
        EXPECT_TRUE(found == before);
        return session.HasRefused();
    }
};

// Refuses each access of a series in turn; returns how many there were.
class FaultTest : public RefusalTest {
protected:
    // onFiles: of so many accesses to a file one is refused.
    static std::size_t RefuseEach(const Begin& begin, const std::vector<Step>& steps,
                                  std::size_t onFiles = 17)
    {
        std::size_t access = 0;
        while (!HasFailure() && RunRefusing(begin, steps, access))
            access += kOneOf * (OnFiles() ? onFiles : 1);
        return access;
    }

    // The road through files is the longer one; its layers above the bytes are the same.
    static bool OnFiles() { return std::get<Road>(GetParam()) == Road::kFile; }
};

TEST_P(FaultTest, AfterARefusalTheFileIsAsItWasOrAsItIsToBe)
{
    EXPECT_LT(5u, RefuseEach(MakeBegin({}), Series()));
}

// In each series some accesses, others in each.
TEST_P(FaultTest, SoItIsInAnySeries)
{
    std::size_t refused = 0;
    for (std::uint32_t seed = 1; seed <= (OnFiles() ? 4 : 25) && !HasFailure(); ++seed) {
        Tree tree;
        const Begin begin = MakeBegin(RandomSeries(seed, 60, &tree));
        const std::vector<Step> steps = RandomSeries(seed + 1000, 40, &tree);
        SCOPED_TRACE("seed " + std::to_string(seed));
        for (std::size_t access = seed % 7; !HasFailure() && RunRefusing(begin, steps, access);
             access += kOneOf * (OnFiles() ? 23 : 7))
            ++refused;
    }
    EXPECT_LT((OnFiles() ? 2u : 25u) / kOneOf, refused);
}

INSTANTIATE_TEST_SUITE_P(Layouts, FaultTest,
                         ::testing::Combine(::testing::Values(Layout::kVersion3, Layout::kVersion4),
                                            ::testing::Values(Refusal::kOneWrite, Refusal::kAllWrites,
                                                              Refusal::kOneRead),
                                            ::testing::ValuesIn(RefusingRoads())));

class LargeFileFaultTest : public FaultTest {};

// The list of FAT sectors goes on behind the header.
TEST_P(LargeFileFaultTest, AfterARefusalTheFileIsAsItWasOrAsItIsToBe)
{
    const Begin begin =
        MakeBegin({MakeStream("large"), Write("large", 0, Pattern(900'000, 1)), SetSize("large", 7'050'000)});
    const std::vector<Step> steps{MakeStream("more"),
                                  Write("more", 0, Pattern(60'000, 2)),
                                  Write("more", 60'000, Pattern(60'000, 3)),
                                  MakeStorage("box"),
                                  MakeStream("box/other"),
                                  Write("box/other", 0, Pattern(9'000, 4)),
                                  Destroy("more"),
                                  Destroy("box"),
                                  Commit()};
    EXPECT_LT(20u, RefuseEach(begin, steps, 400));
}

INSTANTIATE_TEST_SUITE_P(Layouts, LargeFileFaultTest,
                         ::testing::Combine(::testing::Values(Layout::kVersion3),
                                            ::testing::Values(Refusal::kOneWrite, Refusal::kAllWrites),
                                            ::testing::ValuesIn(RefusingRoads())));

// A write was refused, and then a read of what is taken anew: the call says so, and the next one tries again.
TEST(FaultsInARowTest, AReadThatIsRefusedWhileTheFileIsTakenAnewIsToldAndTheNextCallTriesAgain)
{
    std::vector<Step> steps{MakeStorage("box"),           MakeStorage("box/inner"),
                            MakeStream("box/inner/kept"), Write("box/inner/kept", 0, Pattern(9'000, 1)),
                            MakeStream("held"),           WriteHeld("held", 0, Pattern(5'000, 2))};
    for (unsigned i = 0; i < 600; ++i)
        steps.push_back(MakeStream((i % 2 == 0 ? "" : "box/") + std::to_string(i)));
    const Bytes file = MakeFile(steps, nullptr);
    std::size_t reads = 0;
    for (bool refused = true; refused && !::testing::Test::HasFailure(); ++reads) {
        SCOPED_TRACE("read " + std::to_string(reads));
        Session session(Road::kLockBytes, file);
        ASSERT_EQ(S_OK, session.Open(kOpen));
        ASSERT_EQ(S_OK, WriteHeld("held", 0, Pattern(5'000, 2)).run(session));
        ComPtr<IStorage> box;
        ComPtr<IStorage> inner;
        ComPtr<IStream> kept;
        ASSERT_EQ(S_OK, session.root->OpenStorage(OLESTR("box"), nullptr, kOpen, nullptr, 0, box.Put()));
        ASSERT_EQ(S_OK, box->OpenStorage(OLESTR("inner"), nullptr, kOpen, nullptr, 0, inner.Put()));
        ASSERT_EQ(S_OK, inner->OpenStream(OLESTR("kept"), nullptr, kOpen, 0, kept.Put()));
        session.RefuseWrite(0, false);
        ASSERT_EQ(STG_E_MEDIUMFULL, MakeStream("more").run(session));
        session.RefuseRead(reads);
        STATSTG stat{};
        const HRESULT hr = session.root->Stat(&stat, STATFLAG_NONAME);
        refused = session.HasRefused();
        EXPECT_EQ(refused ? STG_E_READFAULT : S_OK, hr);
        session.RefuseRead(~std::size_t{0});
        EXPECT_EQ(S_OK, session.root->Stat(&stat, STATFLAG_NONAME));

        Bytes content;
        EXPECT_EQ(S_OK, kept->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr));
        EXPECT_EQ(S_OK, ReadAll(*kept, &content));
        EXPECT_EQ(Pattern(9'000, 1), content);
        EXPECT_EQ(S_OK, WriteStream(*inner, "other", Pattern(70, 3)));
        EXPECT_EQ(S_OK, WriteAt(*kept, 0, Pattern(9'000, 4)));
        EXPECT_EQ(S_OK, WriteHeld("held", 0, Pattern(5'000, 5)).run(session));
        for (auto* object : {box.Get(), inner.Get()})
            EXPECT_EQ(S_OK, object->Stat(&stat, STATFLAG_NONAME));
        kept.Reset();
        inner.Reset();
        box.Reset();
        Tree tree;
        session.held.Reset();
        EXPECT_EQ(S_OK, Walk(*session.root, "", &tree));
        EXPECT_EQ(Pattern(9'000, 4), tree["box/inner/kept"]);
        EXPECT_EQ(Pattern(70, 3), tree["box/inner/other"]);
        EXPECT_EQ(Pattern(5'000, 5), tree["held"]);
        session.Close();
        EXPECT_EQ("", Text(Examine(session.Content()).faults));
    }
    EXPECT_LT(4u, reads);
}

// Of the last sector, which is free, the file has a part. Whoever uses it has it whole before: here for the
// mini stream, which is full.
TEST(FaultsInARowTest, ACutLastSectorIsWholeBeforeAnythingPointsAtIt)
{
    for (const Layout layout : {Layout::kVersion3, Layout::kVersion4}) {
        Session made(Road::kLockBytes);
        ASSERT_EQ(S_OK, made.Create(layout));
        const std::size_t sector = layout == Layout::kVersion3 ? 512 : 4'096;
        ASSERT_EQ(S_OK, WriteStream(*made.root, "kept", Pattern(sector - 1, 1)));
        made.Close();
        Bytes file = made.Content();
        file.resize(file.size() + 100);
        ASSERT_EQ("", Text(Examine(file).faults));
        std::size_t writes = 0;
        for (bool refused = true; refused && !::testing::Test::HasFailure(); ++writes) {
            SCOPED_TRACE("write " + std::to_string(writes));
            Session session(Road::kLockBytes, file);
            ASSERT_EQ(S_OK, session.Open(kOpen));
            session.RefuseWrite(writes, true);
            (void)WriteStream(*session.root, "added", Pattern(10, 2));
            session.Close();
            refused = session.HasRefused();
            EXPECT_EQ("", Text(Examine(session.Content()).faults));
        }
        EXPECT_LT(3u, writes);
    }
}

// Some programs leave the end of the last sector out. Whoever has changed the file leaves it whole.
TEST(FaultsInARowTest, ACutLastSectorThatIsInUseIsWholeOnceTheFileWasChanged)
{
    Session made(Road::kLockBytes);
    ASSERT_EQ(S_OK, made.Create(Layout::kVersion3));
    ASSERT_EQ(S_OK, WriteStream(*made.root, "first", Pattern(40, 1)));
    ASSERT_EQ(S_OK, WriteStream(*made.root, "last", Pattern(5'000, 2)));
    made.Close();
    Bytes file = made.Content();
    file.resize(file.size() - 100);
    Session session(Road::kLockBytes, file);
    ASSERT_EQ(S_OK, session.Open(kOpen));
    ASSERT_EQ(S_OK, test::Write("first", 0, Pattern(40, 3)).run(session));
    session.Close();
    EXPECT_EQ(0u, session.Content().size() % 512);
    EXPECT_EQ("", Text(Examine(session.Content()).faults));
    Tree tree;
    ASSERT_EQ(S_OK, session.Open(kRead));
    EXPECT_EQ(S_OK, Walk(*session.root, "", &tree));
    EXPECT_EQ((Tree{{"first", Pattern(40, 3)}, {"last", Pattern(5'000, 2)}}), tree);
}

// So many sectors that they are freed in several writes.
TEST(FaultsInARowTest, AWriteThatIsRefusedWhileMuchIsFreedIsTold)
{
    const Bytes file = MakeFile({MakeStream("other"), Write("other", 0, Pattern(6'000, 1)),
                                 MakeStream("large"), Write("large", 0, Pattern(3'000'000, 2))},
                                nullptr);
    for (const std::size_t size : {std::size_t{0}, std::size_t{300}, std::size_t{4'096}}) {
        std::size_t writes = 0;
        for (bool refused = true; refused && !::testing::Test::HasFailure(); writes += kOneOf) {
            SCOPED_TRACE(std::to_string(size) + " bytes, write " + std::to_string(writes));
            Session session(Road::kLockBytes, file);
            ASSERT_EQ(S_OK, session.Open(kOpen));
            ComPtr<IStream> large;
            ASSERT_EQ(S_OK, session.root->OpenStream(OLESTR("large"), nullptr, kOpen, 0, large.Put()));
            session.RefuseWrite(writes, false);
            const HRESULT hr = large->SetSize(Large(size));
            const bool done = SUCCEEDED(hr);
            refused = session.HasRefused();
            large.Reset();
            session.RefuseRead(~std::size_t{0});
            Tree tree;
            EXPECT_EQ(S_OK, Walk(*session.root, "", &tree));
            const Bytes whole = Pattern(3'000'000, 2);
            const Bytes begin(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_TRUE(tree["large"] == begin || (!done && tree["large"] == whole));
            EXPECT_EQ(Pattern(6'000, 1), tree["other"]);
            session.Close();
            EXPECT_EQ("", Text(Examine(session.Content()).faults));
            if (done) {
                EXPECT_EQ("", Text(Examine(session.Content()).leaks));
            }
        }
        EXPECT_LT(3u, writes);
    }
}

}  // namespace
}  // namespace quorvane::cfb::test
