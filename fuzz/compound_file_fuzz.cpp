// A compound file from anywhere, opened, walked through and changed.
//
// The last bytes of the input choose what is done with the file that the rest of it is. Whatever that file
// says, every call ends with a result of structured storage. When the file was sound, it is sound afterwards,
// whether or not a write was refused meanwhile, and holds what the operations say.
#include "fuzz/target.h"

#include "platform/cfb/format.h"
#include "platform/cfb/testing/series.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

using fuzz::Require;

constexpr std::size_t kScript = 8;
constexpr std::size_t kMostElements = 3000;
constexpr std::uint64_t kMostContent = std::uint64_t{16} << 20;

void RequireResult(HRESULT hr, const std::string& what)
{
    Require(hr == S_OK || hr == S_FALSE || HRESULT_FACILITY(hr) == FACILITY_STORAGE,
            what + " ended with " + std::to_string(hr));
}

// What the input says to do.
struct Script {
    explicit Script(const BYTE* bytes)
        : seed(LoadU32(bytes)), steps(bytes[4] % 32), refused(LoadU16(bytes + 5)), refuses(bytes[7] % 4)
    {}

    std::uint32_t seed;
    std::size_t steps;
    std::size_t refused;
    unsigned refuses;  // 0: no access; 1: one write; 2: all from one on; 3: one read
};

// Reads a storage as far as the limits allow. False when there is more, or something can't be read.
class Reader {
public:
    bool Read(IStorage& storage, const std::string& prefix)
    {
        ComPtr<IEnumSTATSTG> elements;
        RequireResult(storage.EnumElements(0, nullptr, 0, elements.Put()), "EnumElements");
        STATSTG stat{};
        HRESULT hr = S_FALSE;
        bool whole = true;
        while (elements && (hr = elements->Next(1, &stat, nullptr)) == S_OK) {
            const OleString name = stat.pwcsName;
            CoTaskMemFree(stat.pwcsName);
            if (++elements_ > kMostElements)
                return false;
            const std::string path = prefix + ToUtf8(name);
            const bool read = stat.type == STGTY_STREAM ? ReadStream(storage, name, path)
                                                        : ReadStorage(storage, name, path);
            whole = whole && read;
        }
        RequireResult(hr, "Next");
        return whole && hr == S_FALSE;
    }

    Tree tree;

private:
    bool ReadStream(IStorage& storage, const OleString& name, const std::string& path)
    {
        ComPtr<IStream> stream;
        STATSTG stat{};
        HRESULT hr = storage.OpenStream(name.c_str(), nullptr, kRead, 0, stream.Put());
        if (SUCCEEDED(hr))
            hr = stream->Stat(&stat, STATFLAG_NONAME);
        RequireResult(hr, "OpenStream");
        content_ += stat.cbSize.QuadPart;
        if (FAILED(hr) || content_ > kMostContent)
            return false;
        Bytes content;
        hr = ReadAll(*stream, &content);
        RequireResult(hr, "Read");
        tree[path] = content;
        return SUCCEEDED(hr);
    }

    bool ReadStorage(IStorage& storage, const OleString& name, const std::string& path)
    {
        ComPtr<IStorage> child;
        const HRESULT hr = storage.OpenStorage(name.c_str(), nullptr, kRead, nullptr, 0, child.Put());
        RequireResult(hr, "OpenStorage");
        tree[path] = std::nullopt;
        return SUCCEEDED(hr) && Read(*child, path + "/");
    }

    std::size_t elements_ = 0;
    std::uint64_t content_ = 0;
};

void Refuse(FaultyBytes& bytes, const Script& script)
{
    if (script.refuses == 3)
        bytes.RefuseRead(script.refused % 64);
    else if (script.refuses != 0)
        bytes.RefuseWrite(script.refused % 256, script.refuses == 2);
}

// Runs the steps. False when one of them failed.
bool Change(Session& session, const Script& script, Tree* tree)
{
    bool all = true;
    std::vector<Step> steps = RandomSeries(script.seed, script.steps, tree);
    for (Step& step : Emptying(script.seed, script.seed % 3 == 0 ? *tree : Tree())) {
        step.apply(*tree);
        steps.push_back(std::move(step));
    }
    for (const Step& step : steps) {
        if (!session.root)
            return false;  // it was closed and can't be opened again
        const HRESULT hr = step.run(session);
        RequireResult(hr, step.what);
        all = all && hr == S_OK;
    }
    return all;
}

// What is left of a file that was sound.
void RequireSound(const FaultyBytes& bytes, const Tree* tree)
{
    const Findings findings = Examine(bytes.Content());
    Require(findings.faults.empty(), "a sound file was damaged:\n" + Text(findings.faults));
    ComPtr<IStorage> root;
    const auto copy = LockBytesWith(bytes.Content());
    Require(OpenDocfileOnLockBytes(copy.Get(), kRead, root.Put()) == S_OK,
            "a sound file can't be opened any more");
    Reader reader;
    const bool whole = reader.Read(*root, "");
    if (tree && whole)
        Require(reader.tree == *tree, "a sound file holds something else than was put in");
}

void RunCompoundFile(const BYTE* data, std::size_t size)
{
    if (size < kScript)
        return;
    const Script script(data + size - kScript);
    const Bytes file(data, data + size - kScript);
    Session session;
    session.bytes = MakeComObject<FaultyBytes>(file);
    const HRESULT hr = OpenDocfileOnLockBytes(session.bytes.Get(), kOpen, session.root.Put());
    RequireResult(hr, "open");
    const bool sound = Examine(file).faults.empty();
    Require(!sound || SUCCEEDED(hr), "a sound file isn't opened");
    if (FAILED(hr))
        return;
    Reader reader;
    bool known = reader.Read(*session.root, "");
    Refuse(*session.bytes, script);
    known = Change(session, script, &reader.tree) && known;
    session.held.Reset();
    session.root.Reset();
    if (sound)
        RequireSound(*session.bytes, known ? &reader.tree : nullptr);
}

Bytes MakeFile(Layout layout, const std::vector<Step>& steps)
{
    Session session;
    session.bytes = MakeComObject<FaultyBytes>();
    RequireResult(CreateDocfileOnLockBytes(session.bytes.Get(), kCreate, session.root.Put(), layout),
                  "create");
    for (const Step& step : steps)
        Require(step.run(session) == S_OK, step.what);
    session.held.Reset();
    session.root.Reset();
    return session.bytes->Content();
}

// Files of few sectors, in which every byte tells something, and some larger ones. Each with a script.
std::vector<Bytes> MakeFiles()
{
    std::vector<Bytes> files;
    for (const Layout layout : {Layout::kVersion3, Layout::kVersion4}) {
        files.push_back(MakeFile(layout, {}));
        files.push_back(
            MakeFile(layout, {MakeStorage("s"), MakeStream("s/a"), Write("s/a", 0, Pattern(100, 1)),
                              MakeStream("b"), Write("b", 0, Pattern(5000, 2))}));
        for (std::uint32_t seed = 1; seed <= 6; ++seed) {
            Tree tree;
            files.push_back(MakeFile(layout, RandomSeries(seed, seed * 12, &tree)));
        }
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Bytes script = Pattern(kScript, static_cast<unsigned>(i));
        files[i].insert(files[i].end(), script.begin(), script.end());
    }
    return files;
}

}  // namespace
}  // namespace quorvane::cfb::test

namespace quorvane::fuzz {

const Target kCompoundFile{"compound_file", cfb::test::RunCompoundFile, cfb::test::MakeFiles};

}  // namespace quorvane::fuzz
