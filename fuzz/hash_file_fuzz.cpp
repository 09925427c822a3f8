// A folder's hashes, and what a killed process left beside them.
//
// The last bytes of the input say how many of those in front of them lie in the record of an overwrite that
// was begun, and what is changed then. Whatever the file says, it opens; once it was saved it holds the map,
// to its end.
#include "engine/persist/hash_file.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "engine/persist/hash_text.h"
#include "engine/session/trace/crc32.h"
#include "fuzz/target.h"
#include "platform/testing/test_directory.h"

namespace quorvane::fuzz {
namespace {

constexpr std::size_t kHashScript = 8;
constexpr std::string_view kRedoMagic = "QVREDO2\n";
constexpr std::size_t kRedoCrcAt = 8;
constexpr std::size_t kRedoTailAt = 12;

using Map = std::map<std::string, std::string>;

struct HashScript {
    explicit HashScript(const BYTE* bytes)
        : redoSize(ReadLittleEndian32(reinterpret_cast<const char*>(bytes)) & 0xFFF),
          seed(ReadLittleEndian32(reinterpret_cast<const char*>(bytes) + 2)),
          steps(bytes[6] % 32)
    {}

    std::size_t redoSize;
    std::uint32_t seed;
    unsigned steps;
};

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// With the checksum that it ought to have, which no fuzzer finds.
std::string WithChecksum(std::string redo)
{
    if (redo.size() <= kRedoTailAt || !redo.starts_with(kRedoMagic))
        return redo;
    std::string crc;
    AppendLittleEndian32(crc, Crc32(redo.data() + kRedoTailAt, redo.size() - kRedoTailAt));
    return redo.replace(kRedoCrcAt, crc.size(), crc);
}

Map ContentOf(const HashFile& file)
{
    Map content;
    file.ForEachKey([&](std::string_view key) { content[std::string(key)] = file.Find(key)->View(); });
    return content;
}

// Changes a file and a model of it, as the engine does.
void Change(HashFile& file, Map& model, std::minstd_rand& random)
{
    const auto any = [&](unsigned below) { return static_cast<unsigned>(random() >> 4) % below; };
    std::string key = PackHashText(OleString(1 + any(3), static_cast<OLECHAR>('a' + any(4))));
    if (!model.empty() && any(2) == 0)
        key = std::next(model.begin(), any(static_cast<unsigned>(model.size())))->first;
    if (any(3) == 0) {
        file.Remove(key);
        model.erase(key);
    } else {
        const std::string value = any(8) == 0 ? kNullHashText : PackHashText(OleString(any(40), 'v'));
        file.Set(key, value);
        model[key] = value;
    }
    if (any(2) == 0)
        Require(file.Save() == S_OK, "a save fails");
}

// The file as a process that comes later finds it.
void RequireSaved(const std::string& path, const Map& model)
{
    HashFile file;
    HRESULT damage = E_UNEXPECTED;
    Require(file.Open(path) == S_OK && file.Load(damage) == S_OK, "a saved file doesn't open");
    Require(damage == S_OK, "a saved file is damaged");
    Require(ContentOf(file) == model, "a saved file holds something else");
}

void RunHashFile(const BYTE* data, std::size_t size)
{
    static const test::TestDirectory directory;
    if (size < kHashScript)
        return;
    const HashScript script(data + size - kHashScript);
    const std::string bytes(reinterpret_cast<const char*>(data), size - kHashScript);
    const std::size_t redoSize = std::min(script.redoSize, bytes.size());
    const std::string path = directory.File("hashes.dat");
    WriteFile(path, bytes.substr(0, bytes.size() - redoSize));
    if (redoSize > 0)
        WriteFile(path + ".redo", WithChecksum(bytes.substr(bytes.size() - redoSize)));
    Map model;
    {
        HashFile file;
        HRESULT damage = S_OK;
        Require(file.Open(path) == S_OK && file.Load(damage) == S_OK, "a file doesn't open");
        Require(!std::filesystem::exists(path + ".redo"), "a record stays that was dealt with");
        model = ContentOf(file);
        std::minstd_rand random(script.seed);
        for (unsigned i = 0; i < script.steps; ++i)
            Change(file, model, random);
        Require(file.Save() == S_OK, "the last save fails");
    }
    if (script.steps > 0)
        RequireSaved(path, model);
}

Bytes Input(const std::string& file, const std::string& redo, unsigned seed, unsigned steps)
{
    std::string bytes = file + redo;
    AppendLittleEndian32(bytes, static_cast<std::uint32_t>(redo.size() | seed << 16));
    AppendLittleEndian32(bytes, steps << 16);
    return Bytes(bytes.begin(), bytes.end());
}

std::string ReadBack(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<Bytes> MakeHashSeeds()
{
    const test::TestDirectory directory;
    const std::string path = directory.File("hashes.dat");
    HashFile file;
    HRESULT damage = S_OK;
    Require(file.Open(path) == S_OK && file.Load(damage) == S_OK, "a new file");
    const auto key = [](OLECHAR last) { return PackHashText(OleString(u"0000000088") + last); };
    for (OLECHAR i = 0; i < 8; ++i) {
        file.Set(key('a' + i), PackHashText(OleString(u"12345678\t") + static_cast<OLECHAR>('0' + i)));
        Require(file.Save() == S_OK, "a save");
    }
    const std::string full = ReadBack(path);
    file.Set(key('c'), PackHashText(u"changed\t1"));
    file.Set(key('x'), kNullHashText);
    file.Remove(key('b'));
    Require(file.Save() == S_OK, "a save");
    const std::string changed = ReadBack(path);
    // An overwrite of the first key by the second one that stopped in its midst.
    std::string torn = full;
    std::string redo(kRedoMagic);
    redo.append(4, '\0');
    AppendLittleEndian32(redo, 4);
    AppendLittleEndian32(redo, 0);
    const std::string before = full.substr(4, 22);
    std::string after = before;
    after[18] = after[20] = 'b';
    redo += before + after;
    torn[4 + 18] = 'b';
    return {Input({}, {}, 1, 8), Input(full, {}, 2, 16), Input(changed, {}, 3, 31), Input(torn, redo, 4, 8)};
}

}  // namespace

const Target kHashFile{"hash_file", RunHashFile, MakeHashSeeds};

}  // namespace quorvane::fuzz
