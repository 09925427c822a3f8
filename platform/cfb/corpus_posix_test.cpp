// Real files: the sound ones are read as another program reads them, the damaged ones soon and with little
// memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <functional>
#include <sstream>

#include "platform/cfb/testing/exercise.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

namespace fs = std::filesystem;

// Tells all elements of the files that it is given, as Describe below does, with olefile's reader: the path
// in hexadecimal UTF-16, and of a stream its size and checksum.
constexpr char kForeignReader[] = R"(
import olefile, sys, zlib

def tell(ole, storage, prefix, lines):
    for entry in storage.kids:
        path = prefix + entry.name_utf16.hex()
        if entry.entry_type == olefile.STGTY_STREAM:
            content = ole._open(entry.isectStart, entry.size).read()
            lines.append('%s %d %d' % (path, len(content), zlib.adler32(content)))
        else:
            lines.append(path)
            tell(ole, entry, path + '/', lines)

for name in sys.stdin.read().splitlines():
    with olefile.OleFileIO(name) as ole:
        lines = []
        tell(ole, ole.root, '', lines)
    print('= ' + name)
    print('\n'.join(sorted(lines)))
)";

std::vector<fs::path> FilesOf(const char* folder)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(fs::path(std::getenv("QUORVANE_CORPUS")) / folder))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::string Hex(LPCOLESTR text)
{
    std::string hex;
    for (; *text; ++text) {
        char unit[5];
        std::snprintf(unit, sizeof unit, "%02x%02x", static_cast<unsigned>(*text & 0xFF),
                      static_cast<unsigned>(*text >> 8 & 0xFF));
        hex += unit;
    }
    return hex;
}

std::uint32_t Adler32(const Bytes& content)
{
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const BYTE byte : content) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

HRESULT Describe(IStorage& storage, const std::string& prefix, std::vector<std::string>* lines)
{
    ComPtr<IEnumSTATSTG> elements;
    HRESULT hr = storage.EnumElements(0, nullptr, 0, elements.Put());
    for (STATSTG stat{}; SUCCEEDED(hr) && (hr = elements->Next(1, &stat, nullptr)) == S_OK;) {
        const OleString name = stat.pwcsName;
        const std::string path = prefix + Hex(stat.pwcsName);
        CoTaskMemFree(stat.pwcsName);
        if (stat.type == STGTY_STREAM) {
            ComPtr<IStream> stream;
            Bytes content;
            hr = storage.OpenStream(name.c_str(), nullptr, kRead, 0, stream.Put());
            if (SUCCEEDED(hr))
                hr = ReadAll(*stream, &content);
            EXPECT_EQ(stat.cbSize.QuadPart, content.size()) << path;
            lines->push_back(path + " " + std::to_string(content.size()) + " " +
                             std::to_string(Adler32(content)));
            continue;
        }
        ComPtr<IStorage> child;
        lines->push_back(path);
        hr = storage.OpenStorage(name.c_str(), nullptr, kRead, nullptr, 0, child.Put());
        if (SUCCEEDED(hr))
            hr = Describe(*child, path + "/", lines);
    }
    return hr;
}

std::string OwnDescription(const fs::path& file)
{
    ComPtr<IStorage> root;
    std::vector<std::string> lines;
    HRESULT hr = OpenDocfile(FromUtf8(file.string()).c_str(), kRead, root.Put());
    EXPECT_EQ(S_OK, hr) << file;
    if (SUCCEEDED(hr)) {
        hr = Describe(*root, "", &lines);
        EXPECT_EQ(S_FALSE, hr) << file;
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// What the foreign reader tells of each file.
std::map<std::string, std::string> ForeignDescriptions(const std::vector<fs::path>& files)
{
    const ScratchDirectory scratch;
    std::ofstream(scratch.File("reader.py")) << kForeignReader;
    std::ofstream list(scratch.File("files"));
    for (const fs::path& file : files)
        list << file.string() << "\n";
    list.close();
    const std::string command = "/usr/bin/python3 '" + scratch.File("reader.py") + "' <'" +
                                scratch.File("files") + "' >'" + scratch.File("told") + "'";
    EXPECT_EQ(0, std::system(command.c_str())) << command;

    std::map<std::string, std::string> told;
    std::ifstream in(scratch.File("told"));
    std::string file;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("= ", 0) == 0)
            told[file = line.substr(2)];  // which may have no elements
        else if (!line.empty())
            told[file] += line + "\n";
    }
    return told;
}

class CorpusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!std::getenv("QUORVANE_CORPUS"))
            GTEST_SKIP() << "QUORVANE_CORPUS isn't set";
    }
};

std::vector<fs::path> SoundFiles()
{
    std::vector<fs::path> files = FilesOf("msg");
    const std::vector<fs::path> others = FilesOf("ole");
    files.insert(files.end(), others.begin(), others.end());
    EXPECT_LT(200u, files.size());
    for (std::size_t i = 0; i * kOneOf < files.size(); ++i)
        files[i] = files[i * kOneOf];
    files.resize((files.size() + kOneOf - 1) / kOneOf);
    return files;
}

TEST_F(CorpusTest, EverySoundFileIsReadToTheLastByteOfEveryStream)
{
    const std::vector<fs::path> files = SoundFiles();
    const auto foreign = ForeignDescriptions(files);
    for (const fs::path& file : files) {
        const auto told = foreign.find(file.string());
        ASSERT_TRUE(told != foreign.end()) << file;
        EXPECT_EQ(told->second, OwnDescription(file)) << file;
    }
}

TEST_F(CorpusTest, EverySoundFileThatIsOpenedForWritingAndNotChangedStaysAsItIs)
{
    for (const fs::path& file : SoundFiles()) {
        const auto bytes = LockBytesWith(LoadFile(file));
        ComPtr<IStorage> root;
        Tree tree;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put())) << file;
        EXPECT_EQ(S_OK, Walk(*root, "", &tree)) << file;
        root.Reset();
        EXPECT_TRUE(LoadFile(file) == ContentOf(*bytes)) << file;
    }
}

// Makes, destroys and renames elements, each in a session of its own.
void Change(ILockBytes& bytes, const Tree& before)
{
    const std::vector<std::function<HRESULT(IStorage&)>> changes{
        [](IStorage& root) { return WriteStream(root, "added", Pattern(70'000, 1)); },
        [](IStorage& root) { return WriteStream(root, "added too", Pattern(900, 2)); },
        [](IStorage& root) { return root.RenameElement(OLESTR("added too"), OLESTR("renamed")); },
        [&](IStorage& root) {
            return before.empty() ? S_OK : root.DestroyElement(FromUtf8(before.begin()->first).c_str());
        },
        [](IStorage& root) { return WriteStream(root, "added", Pattern(300, 3)); },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(&bytes, kOpen, root.Put()));
        EXPECT_EQ(S_OK, changes[i](*root)) << "change " << i;
    }
}

TEST_F(CorpusTest, EverySoundFileIsChangedInPlaceWithoutHarmToTheRest)
{
    for (const fs::path& file : SoundFiles()) {
        SCOPED_TRACE(file);
        const auto bytes = LockBytesWith(LoadFile(file));
        const Findings before = Examine(LoadFile(file));
        ComPtr<IStorage> root;
        Tree tree;
        Tree found;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kRead, root.Put()));
        ASSERT_EQ(S_OK, Walk(*root, "", &tree));
        root.Reset();

        Change(*bytes.Get(), tree);

        if (!tree.empty()) {
            const std::string first = tree.begin()->first;
            std::erase_if(tree, [&](const auto& one) {
                return one.first == first || one.first.compare(0, first.size() + 1, first + "/") == 0;
            });
        }
        tree["added"] = Pattern(300, 3);
        tree["renamed"] = Pattern(900, 2);
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kRead, root.Put()));
        ASSERT_EQ(S_OK, Walk(*root, "", &found));
        EXPECT_TRUE(tree == found);
        const Findings after = Examine(ContentOf(*bytes));
        EXPECT_TRUE(!before.faults.empty() || after.faults.empty()) << Text(after.faults);
        EXPECT_TRUE(!before.leaks.empty() || after.leaks.empty()) << Text(after.leaks);
    }
}

// Destroys every third element, and makes as many streams, here and there. *tree: what is in the file, before
// and after.
Bytes Exchanged(const Bytes& file, Tree* tree)
{
    std::vector<Step> steps;
    std::vector<std::string> storages{""};
    std::size_t number = 0;
    const Tree before = *tree;
    for (const auto& [path, content] : before) {
        if (!tree->contains(path))
            continue;
        if (number++ % 3 == 2) {
            steps.push_back(Destroy(path));
            steps.back().apply(*tree);
        } else if (!content) {
            storages.push_back(path + "/");
        }
    }
    for (std::size_t i = 0; i <= number / 3; ++i) {
        const std::string path = storages[i % storages.size()] + "added" + std::to_string(i);
        steps.push_back(MakeStream(path));
        steps.back().apply(*tree);
        steps.push_back(Write(path, 0, Pattern(1 + i * 977 % 9'000, static_cast<unsigned>(i))));
        steps.back().apply(*tree);
    }
    Session session(Road::kFile, file);
    EXPECT_EQ(S_OK, session.Open(kOpen));
    for (const Step& step : steps)
        EXPECT_EQ(S_OK, step.run(session)) << step.what;
    session.Close();
    return session.Content();
}

// The files that a command, with a file's name behind it, refuses; those alone that it took as they were
// before.
std::vector<std::string> RefusedBy(const std::string& command, const fs::path& changed,
                                   const std::vector<fs::path>& originals)
{
    std::vector<std::string> refused;
    const auto takes = [&](const fs::path& file) {
        return std::system((command + " '" + file.string() + "' >/dev/null 2>&1").c_str()) == 0;
    };
    for (const fs::path& file : originals) {
        if (!takes(changed / file.filename()) && takes(file))
            refused.push_back(file.filename().string());
    }
    return refused;
}

TEST_F(CorpusTest, EverySoundFileWithAThirdOfItsElementsExchangedIsReadByOtherProgramsAndTheRestIsAsItWas)
{
    const ScratchDirectory scratch;
    const fs::path changed = scratch.File("changed");
    const std::vector<fs::path> originals = SoundFiles();
    std::vector<fs::path> files;
    fs::create_directory(changed);
    for (const fs::path& original : originals) {
        SCOPED_TRACE(original);
        Tree tree;
        {
            Session session(Road::kLockBytes, LoadFile(original));
            ASSERT_EQ(S_OK, session.Open(kRead));
            ASSERT_EQ(S_OK, Walk(*session.root, "", &tree));
        }
        const Bytes content = Exchanged(LoadFile(original), &tree);
        Session session(Road::kLockBytes, content);
        Tree found;
        ASSERT_EQ(S_OK, session.Open(kRead));
        EXPECT_EQ(S_OK, Walk(*session.root, "", &found));
        EXPECT_TRUE(tree == found);
        files.push_back(changed / original.filename());
        std::ofstream(files.back(), std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    }
    const auto foreign = ForeignDescriptions(files);
    for (const fs::path& file : files) {
        const auto told = foreign.find(file.string());
        ASSERT_TRUE(told != foreign.end()) << file;
        EXPECT_EQ(told->second, OwnDescription(file)) << file;
    }
    EXPECT_EQ(std::vector<std::string>(), RefusedBy("gsf list", changed, originals));
    EXPECT_EQ(std::vector<std::string>(), RefusedBy("7z t -tCompound", changed, originals));
}

// Which of three other programs read a file: libgsf's, olefile, 7-Zip, each by a letter.
std::string ReadersOf(const fs::path& file)
{
    const std::string name = " '" + file.string() + "' >/dev/null 2>&1";
    std::string readers;
    if (std::system(("gsf list" + name).c_str()) == 0)
        readers += "g";
    if (std::system(("/usr/bin/python3 -c 'import olefile, sys; f = olefile.OleFileIO(sys.argv[1]); "
                     "[f.openstream(s).read() for s in f.listdir()]'" +
                     name)
                        .c_str()) == 0)
        readers += "o";
    if (std::system(("7z t -tCompound" + name).c_str()) == 0)
        readers += "7";
    return readers;
}

TEST(RootNameTest, AFileWhoseRootHasNoProperNameIsReadAndChangedAsOtherProgramsReadIt)
{
    Session made(Road::kLockBytes);
    ASSERT_EQ(S_OK, made.Create(Layout::kVersion3));
    ASSERT_EQ(S_OK, WriteStream(*made.root, "s", Pattern(9'000, 1)));
    ASSERT_EQ(S_OK, WriteStream(*made.root, "t", Pattern(90, 2)));
    made.Close();
    constexpr std::size_t kRoot = 1024;
    struct Name {
        char letter;  // of which the 64 bytes are full; 0: none
        unsigned length;
    };
    for (const auto& [letter, length] : {Name{0, 0}, {0, 2}, {'R', 3}, {'R', 64}, {'R', 0xFFFF}}) {
        SCOPED_TRACE(length);
        Bytes file = made.Content();
        ASSERT_EQ(5, file[kRoot + 66]);
        std::fill_n(file.begin() + kRoot, 64, static_cast<BYTE>(letter));
        file[kRoot + 64] = static_cast<BYTE>(length);
        file[kRoot + 65] = static_cast<BYTE>(length >> 8);
        Session session(Road::kFile, file);
        const std::string readers = ReadersOf(session.file);
        EXPECT_EQ("go", readers.substr(0, 2));
        ASSERT_EQ(S_OK, session.Open(kOpen));
        EXPECT_EQ(S_OK, WriteStream(*session.root, "u", Pattern(700, 3)));
        session.Close();
        Tree tree;
        ASSERT_EQ(S_OK, session.Open(kRead));
        EXPECT_EQ(S_OK, Walk(*session.root, "", &tree));
        EXPECT_EQ((Tree{{"s", Pattern(9'000, 1)}, {"t", Pattern(90, 2)}, {"u", Pattern(700, 3)}}), tree);
        session.Close();
        EXPECT_EQ(readers, ReadersOf(session.file));
    }
}

long PeakKilobytes()
{
    struct rusage usage;
    return getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss : 0;
}

TEST_F(CorpusTest, EveryDamagedFileIsWalkedCopiedAndChangedOrRefusedAtACostBoundedByItsSize)
{
    const std::vector<fs::path> files = FilesOf("ole-bad");
    const long before = PeakKilobytes();
    for (const fs::path& file : files) {
        const Bytes content = LoadFile(file);
        const Outcome outcome = ExerciseAll(content);
        for (const HRESULT hr : {outcome.opened, outcome.copied, outcome.walked})
            EXPECT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << file;
        EXPECT_GT(20 * content.size() + 500'000, outcome.moved) << file;
    }
    EXPECT_EQ(35u, files.size());
    EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
}

}  // namespace
}  // namespace quorvane::cfb::test
