#include "platform/cfb/testing/series.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "platform/cfb/testing/file_faults.h"

namespace quorvane::cfb::test {
namespace {

std::pair<std::string, std::string> SplitPath(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::pair(std::string(), path)
                                      : std::pair(path.substr(0, slash), path.substr(slash + 1));
}

// As InStorage, with the stream at the end of the path, `use` (IStream& -> HRESULT).
template <class Use>
HRESULT InStream(IStorage& root, const std::string& path, const Use& use)
{
    const auto [parent, name] = SplitPath(path);
    return InStorage(root, parent, [&, &last = name](IStorage& storage) {
        ComPtr<IStream> stream;
        const HRESULT hr = storage.OpenStream(FromUtf8(last).c_str(), nullptr, kOpen, 0, stream.Put());
        return FAILED(hr) ? hr : use(*stream);
    });
}

void Overwrite(Bytes& content, std::size_t offset, const Bytes& part)
{
    content.resize(std::max(content.size(), offset + part.size()));
    std::copy(part.begin(), part.end(), content.begin() + static_cast<std::ptrdiff_t>(offset));
}

void Forget(Tree& tree, const std::string& path)
{
    std::erase_if(tree, [&](const auto& one) {
        return one.first == path || one.first.compare(0, path.size() + 1, path + "/") == 0;
    });
}

void CopyBelow(Tree& tree, const std::string& from, const std::string& to)
{
    const Tree before = tree;
    for (const auto& [path, content] : before) {
        if (path.compare(0, from.size() + 1, from + "/") == 0)
            tree[to + path.substr(from.size())] = content;
    }
}

// Through a stream in the root that stays open over all steps.
template <class Use>
HRESULT WithHeld(Session& s, const std::string& name, const Use& use)
{
    const HRESULT hr = s.held ? use(*s.held) : STG_E_REVERTED;
    if (hr != STG_E_REVERTED)
        return hr;
    s.held.Reset();
    const HRESULT opened = s.root->OpenStream(FromUtf8(name).c_str(), nullptr, kOpen, 0, s.held.Put());
    return FAILED(opened) ? opened : use(*s.held);
}

// A file of its own for each session.
std::string NewFile()
{
    static const ScratchDirectory directory;
    static unsigned files = 0;
    return directory.File("package" + std::to_string(++files));
}

}  // namespace

Session::Session(Road road, const Bytes& content)
{
    if (road == Road::kLockBytes) {
        bytes = MakeComObject<FaultyBytes>(content);
        return;
    }
    file = NewFile();
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

Session::~Session()
{
    Close();
    if (file.empty())
        return;
    FileFaults::Stop();
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
}

HRESULT Session::Create(Layout layout)
{
    return bytes ? CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put(), layout)
                 : CreateDocfile(FromUtf8(file).c_str(), kCreate, root.Put(), layout);
}

HRESULT Session::Open(DWORD mode)
{
    return bytes ? OpenDocfileOnLockBytes(bytes.Get(), mode, root.Put())
                 : OpenDocfile(FromUtf8(file).c_str(), mode, root.Put());
}

Bytes Session::Content() const
{
    return bytes ? bytes->Content() : LoadFile(file);
}

std::uint64_t Session::Calls() const
{
    return bytes ? bytes->Calls() : FileFaults::Calls();
}

std::uint64_t Session::Moved() const
{
    return bytes ? bytes->Moved() : FileFaults::Moved();
}

void Session::RefuseWrite(std::size_t write, bool on)
{
    if (bytes)
        bytes->RefuseWrite(write, on);
    else
        FileFaults::RefuseWrite(file, write, on);
}

void Session::RefuseRead(std::size_t read)
{
    if (bytes)
        bytes->RefuseRead(read);
    else
        FileFaults::RefuseRead(file, read);
}

bool Session::HasRefused() const
{
    return bytes ? bytes->HasRefused() : FileFaults::HasRefused();
}

Step MakeStorage(const std::string& path)
{
    return {"make storage " + path,
            [=](Session& s) {
                return InStorage(*s.root, SplitPath(path).first, [&](IStorage& storage) {
                    ComPtr<IStorage> made;
                    const HRESULT hr = storage.CreateStorage(FromUtf8(SplitPath(path).second).c_str(),
                                                             kCreate, 0, 0, made.Put());
                    return FAILED(hr) ? hr : made->Commit(STGC_DEFAULT);
                });
            },
            [=](Tree& tree) {
                Forget(tree, path);
                tree[path] = std::nullopt;
            }};
}

Step MakeStream(const std::string& path)
{
    return {"make stream " + path,
            [=](Session& s) {
                return InStorage(*s.root, SplitPath(path).first, [&](IStorage& storage) {
                    ComPtr<IStream> made;
                    return storage.CreateStream(FromUtf8(SplitPath(path).second).c_str(), kCreate, 0, 0,
                                                made.Put());
                });
            },
            [=](Tree& tree) {
                Forget(tree, path);
                tree[path] = Bytes();
            }};
}

Step Write(const std::string& path, std::size_t offset, const Bytes& content)
{
    return {"write to " + path,
            [=](Session& s) {
                return InStream(*s.root, path,
                                [&](IStream& stream) { return WriteAt(stream, offset, content); });
            },
            [=](Tree& tree) { Overwrite(*tree[path], offset, content); }, path};
}

Step WriteHeld(const std::string& name, std::size_t offset, const Bytes& content)
{
    return {"write to the open " + name,
            [=](Session& s) {
                return WithHeld(s, name, [&](IStream& stream) { return WriteAt(stream, offset, content); });
            },
            [=](Tree& tree) { Overwrite(*tree[name], offset, content); }, name};
}

Step SetHeldSize(const std::string& name, std::size_t size)
{
    return {"set size of the open " + name,
            [=](Session& s) {
                return WithHeld(s, name, [&](IStream& stream) { return stream.SetSize(Large(size)); });
            },
            [=](Tree& tree) { tree[name]->resize(size); }};
}

Step SetSize(const std::string& path, std::size_t size)
{
    return {"set size of " + path,
            [=](Session& s) {
                return InStream(*s.root, path, [&](IStream& stream) { return stream.SetSize(Large(size)); });
            },
            [=](Tree& tree) { tree[path]->resize(size); }};
}

Step Destroy(const std::string& path)
{
    return {"destroy " + path,
            [=](Session& s) {
                return InStorage(*s.root, SplitPath(path).first, [&](IStorage& storage) {
                    return storage.DestroyElement(FromUtf8(SplitPath(path).second).c_str());
                });
            },
            [=](Tree& tree) { Forget(tree, path); }};
}

Step Rename(const std::string& path, const std::string& newName)
{
    return {"rename " + path,
            [=](Session& s) {
                return InStorage(*s.root, SplitPath(path).first, [&](IStorage& storage) {
                    return storage.RenameElement(FromUtf8(SplitPath(path).second).c_str(),
                                                 FromUtf8(newName).c_str());
                });
            },
            [=](Tree& tree) {
                const std::string parent = SplitPath(path).first;
                const std::string to = parent.empty() ? newName : parent + "/" + newName;
                CopyBelow(tree, path, to);
                tree[to] = tree[path];
                Forget(tree, path);
            }};
}

Step CopyTo(const std::string& from, const std::string& to)
{
    // The storages above both are opened once.
    std::size_t shared = 0;
    for (std::size_t i = 0; i < std::min(from.size(), to.size()) && from[i] == to[i]; ++i) {
        if (from[i] == '/')
            shared = i + 1;
    }
    return {"copy " + from,
            [=](Session& s) {
                return InStorage(*s.root, from.substr(0, shared), [&](IStorage& above) {
                    return InStorage(above, from.substr(shared), [&](IStorage& source) {
                        return InStorage(above, to.substr(shared), [&](IStorage& target) {
                            return source.CopyTo(0, nullptr, nullptr, &target);
                        });
                    });
                });
            },
            [=](Tree& tree) { CopyBelow(tree, from, to); }, to + "/", true};
}

Step Move(const std::string& name, const std::string& to)
{
    return {"move " + name,
            [=](Session& s) {
                return InStorage(*s.root, to, [&](IStorage& target) {
                    return s.root->MoveElementTo(FromUtf8(name).c_str(), &target, FromUtf8(name).c_str(),
                                                 STGMOVE_MOVE);
                });
            },
            [=](Tree& tree) {
                tree[to + "/" + name] = tree[name];
                Forget(tree, name);
            },
            to + "/" + name};
}

Step SetClass(const std::string& path)
{
    return {"set class of " + path,
            [=](Session& s) {
                return InStorage(*s.root, path,
                                 [](IStorage& storage) { return storage.SetClass(IID_IStorage); });
            },
            [](Tree&) {}};
}

Step Commit()
{
    return {"commit", [](Session& s) { return s.root->Commit(STGC_DEFAULT); }, [](Tree&) {}};
}

Step Reopen()
{
    return {"reopen",
            [](Session& s) {
                s.Close();
                return s.Open(kOpen);
            },
            [](Tree&) {}};
}

Step MakeItem(const std::string& name, unsigned seed, std::size_t longest)
{
    const auto content = [=](unsigned i) { return Pattern(i == 9 ? longest : i * i * 13, seed + i); };
    return {"make item " + name,
            [=](Session& s) {
                ComPtr<IStorage> item;
                ComPtr<IStorage> inner;
                HRESULT hr = s.root->CreateStorage(FromUtf8(name).c_str(), kCreate, 0, 0, item.Put());
                if (SUCCEEDED(hr))
                    hr = item->CreateStorage(OLESTR("inner"), kCreate, 0, 0, inner.Put());
                for (unsigned i = 0; i < 10 && SUCCEEDED(hr); ++i)
                    hr = WriteStream(i < 5 ? *item : *inner, "s" + std::to_string(i), content(i));
                return FAILED(hr) ? hr : item->Commit(STGC_DEFAULT);
            },
            [=](Tree& tree) {
                Forget(tree, name);
                tree[name] = tree[name + "/inner"] = std::nullopt;
                for (unsigned i = 0; i < 10; ++i)
                    tree[name + (i < 5 ? "/s" : "/inner/s") + std::to_string(i)] = content(i);
            }};
}

std::vector<Step> BeforeFileChanges()
{
    std::vector<Step> steps{MakeStorage("box"), MakeStorage("box/inner"), MakeStorage("copies")};
    for (unsigned i = 0; i < 12; ++i) {
        const std::string path = (i % 2 == 0 ? "e" : "box/e") + std::to_string(i);
        steps.push_back(MakeStream(path));
        steps.push_back(Write(path, 0, Pattern(1 + i * i * 80, i)));
    }
    for (unsigned i = 0; i < 4; ++i)
        steps.push_back(MakeItem("item" + std::to_string(i), i));
    return steps;
}

std::vector<FileChange> FileChanges()
{
    Tree tree;
    for (const Step& step : BeforeFileChanges())
        step.apply(tree);
    return {
        {"create an item", {MakeItem("item9", 1)}, true},
        {"create a large item", {MakeItem("item9", 2, 90'000)}, true},
        {"replace an item", {MakeItem("item1", 3)}, true},
        {"copy a storage", {CopyTo("box", "copies")}, false},
        {"move an element", {Move("e10", "copies")}, false},
        {"destroy an item", {Destroy("item2")}, true},
        {"destroy a storage", {Destroy("box")}, true},
        {"destroy a stream and give its room back", {Destroy("e10"), Commit()}, false},
        {"rename a stream", {Rename("e2", "a name that is longer")}, true},
        {"rename a storage", {Rename("box", "b")}, true},
        {"create a stream", {MakeStream("e99")}, true},
        {"replace a storage by a stream", {MakeStream("item3")}, true},
        {"make a short stream long", {Write("e4", 1'000, Pattern(9'000, 4))}, false},
        {"make a long stream short", {SetSize("e10", 300)}, false},
        {"make a stream longer", {Write("e10", 8'001, Pattern(70'000, 5))}, false},
        {"overwrite a stream", {Write("e10", 100, Pattern(7'000, 6))}, false},
        {"empty a stream", {SetSize("e8", 0)}, false},
        {"set a class", {SetClass("box")}, true},
        {"make a storage and a stream in it",
         {MakeStorage("n"), MakeStream("n/s"), Write("n/s", 0, Pattern(99, 7))},
         false},
        {"many things", RandomSeries(8, 12, &tree), false},
    };
}

namespace {

// Chooses what comes next from what is there.
class Chooser {
public:
    Chooser(std::uint32_t seed, Tree& tree) : random_(seed), tree_(tree) {}

    Step Choose()
    {
        const std::string stream = Any(true);
        const std::string storage = Any(false);
        const unsigned what = Number(100);
        if (what < 30 || tree_.size() < 3)
            return MakeStream(NewPath());
        if (what < 40)
            return MakeStorage(NewPath());
        if (what < 41)
            return Commit();
        if (what < 44)
            return Reopen();
        if (what < 68 && !stream.empty())
            return Write(stream,
                         Number(3) == 0 ? 0 : Number(static_cast<unsigned>(tree_[stream]->size() + 1)),
                         Pattern(1 + Size(), Number(1000)));
        if (what < 76 && !stream.empty())
            return SetSize(stream, Size());
        if (what < 90)
            return Destroy(stream.empty() || (Number(4) == 0 && !storage.empty()) ? storage : stream);
        if (what < 96)
            return RenameOne(stream.empty() || Number(4) == 0 ? storage : stream);
        return Copy(storage, Any(false));
    }

private:
    unsigned Number(unsigned below) { return static_cast<unsigned>(random_() % below); }

    // Mostly small; some go over the borders of a mini stream's sector, of the mini stream, of a FAT sector.
    std::size_t Size()
    {
        constexpr unsigned kMost[] = {65, 65, 600, 600, 600, 5000, 5000, 9000, 90'000};
        return Number(kMost[Number(std::size(kMost))]);
    }

    // A stream or a storage that is there; empty when there is none.
    std::string Any(bool stream)
    {
        std::vector<std::string> paths;
        for (const auto& [path, content] : tree_) {
            if (content.has_value() == stream)
                paths.push_back(path);
        }
        return paths.empty() ? std::string() : paths[Number(static_cast<unsigned>(paths.size()))];
    }

    std::string NewName() { return std::string(1 + Number(3), 'a') + std::to_string(Number(60)); }

    std::string NewPath()
    {
        const std::string storage = Number(3) == 0 ? std::string() : Any(false);
        return storage.empty() || storage.size() > 30 ? NewName() : storage + "/" + NewName();
    }

    Step RenameOne(const std::string& path)
    {
        const std::string name = NewName();
        const std::size_t slash = path.rfind('/');
        const std::string to = slash == std::string::npos ? name : path.substr(0, slash + 1) + name;
        return path.empty() || tree_.contains(to) ? MakeStream(NewPath()) : Rename(path, name);
    }

    // Into a storage that is not above or below the other, where no element of one name is of two kinds.
    Step Copy(const std::string& from, const std::string& to)
    {
        const std::string a = from + "/";
        const std::string b = to + "/";
        if (from.empty() || to.empty() || a.compare(0, b.size(), b) == 0 || b.compare(0, a.size(), a) == 0)
            return MakeStorage(NewPath());
        for (const auto& [path, content] : tree_) {
            if (path.compare(0, a.size(), a) != 0)
                continue;
            const auto there = tree_.find(b + path.substr(a.size()));
            if (there != tree_.end() && (content.has_value() != there->second.has_value()))
                return MakeStorage(NewPath());
        }
        return CopyTo(from, to);
    }

    std::mt19937 random_;
    Tree& tree_;
};

}  // namespace

std::vector<Step> RandomSeries(std::uint32_t seed, std::size_t count, Tree* tree)
{
    Chooser chooser(seed, *tree);
    std::vector<Step> steps;
    while (steps.size() < count) {
        steps.push_back(chooser.Choose());
        steps.back().apply(*tree);
    }
    return steps;
}

std::vector<Step> Emptying(std::uint32_t seed, const Tree& tree)
{
    std::vector<Step> steps;
    for (const auto& [path, content] : tree) {
        if (path.find('/') == std::string::npos)
            steps.push_back(Destroy(path));
    }
    std::shuffle(steps.begin(), steps.end(), std::mt19937(seed));
    return steps;
}

}  // namespace quorvane::cfb::test
