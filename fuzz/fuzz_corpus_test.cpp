// Runs the fuzz targets over inputs made here, over mutations of them that are the same at each run, over
// inputs that once broke something, and over real files where there are some.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "fuzz/target.h"

namespace quorvane::fuzz {
namespace {

Bytes ContentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// Changes an input as a fuzzer does: numbers that matter at places that matter.
class Mutator {
public:
    explicit Mutator(std::uint32_t seed) : random_(seed) {}

    Bytes Mutate(Bytes input)
    {
        for (unsigned i = 1 + Number(4); i > 0 && !input.empty(); --i) {
            switch (Number(7)) {
                case 0:
                    input[Number(input.size())] = static_cast<BYTE>(random_());
                    break;
                case 1:
                    input.resize(Number(input.size()));
                    break;
                case 2:
                    CopySector(input);
                    break;
                case 3:
                    RandomTail(input);
                    break;
                default:
                    SetNumber(input);
            }
        }
        return input;
    }

private:
    std::size_t Number(std::size_t below) { return random_() % below; }

    void CopySector(Bytes& input)
    {
        if (input.size() < 1024)
            return;
        const std::size_t sectors = input.size() / 512;
        const auto from = input.begin() + static_cast<std::ptrdiff_t>(Number(sectors) * 512);
        std::copy_n(Bytes(from, from + 512).begin(), 512,
                    input.begin() + static_cast<std::ptrdiff_t>(Number(sectors) * 512));
    }

    // Where some inputs say what is to be done.
    void RandomTail(Bytes& input)
    {
        for (std::size_t i = 1; i <= std::min<std::size_t>(8, input.size()); ++i)
            input[input.size() - i] = static_cast<BYTE>(random_());
    }

    // Little-endian, as all of them are, and with the values that stand for something in compound files.
    void SetNumber(Bytes& input)
    {
        if (input.size() < 8)
            return;
        const std::uint32_t kValues[] = {0,
                                         1,
                                         2,
                                         3,
                                         0xFFFFFFFC,
                                         0xFFFFFFFD,
                                         0xFFFFFFFE,
                                         0xFFFFFFFF,
                                         0x7FFFFFFF,
                                         4095,
                                         4096,
                                         static_cast<std::uint32_t>(Number(64)),
                                         static_cast<std::uint32_t>(Number(input.size()))};
        const std::uint32_t value = kValues[Number(std::size(kValues))];
        const std::size_t at = Number(input.size() / 4 - 1) * 4;
        for (std::size_t i = 0; i < 4; ++i)
            input[at + i] = static_cast<BYTE>(value >> (8 * i));
    }

    std::mt19937 random_;
};

// What an input may cost at most, in memory that the process hasn't taken before.
constexpr std::uint64_t kMostMemory = std::uint64_t{64} << 20;

// A number in kilobytes of the process's state; 0 when there is none.
std::uint64_t KilobytesOf(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name))
            return std::strtoull(line.c_str() + name.size(), nullptr, 10);
    return 0;
}

// Takes the present memory for the peak. False when the system doesn't let us; sanitizers have memory of
// their own.
bool ForgetPeak()
{
#ifdef __SANITIZE_ADDRESS__
    return false;
#else
    return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << 5 << std::flush);
#endif
}

// A target, how many mutations it gets, and which folders of the real files it reads.
struct Case {
    const Target* target;
    unsigned mutations;
    std::vector<const char*> folders;
};

void PrintTo(const Case& tested, std::ostream* out)
{
    *out << tested.target->name;
}

class FuzzCorpusTest : public ::testing::TestWithParam<Case> {
protected:
    static void Run(const Bytes& input)
    {
        const bool isMeasured = ForgetPeak();
        const std::uint64_t before = KilobytesOf("VmRSS:");
        GetParam().target->run(input.data(), input.size());
        if (isMeasured) {
            EXPECT_LT(KilobytesOf("VmHWM:"), before + kMostMemory / 1024);
        }
    }
};

TEST_P(FuzzCorpusTest, WhatOurOwnWritersMakeIsRead)
{
    const std::vector<Bytes> seeds = GetParam().target->makeSeeds();
    EXPECT_LT(1u, seeds.size());
    for (const Bytes& seed : seeds)
        Run(seed);
}

TEST_P(FuzzCorpusTest, MutatedInputsBreakNothing)
{
    const std::vector<Bytes> seeds = GetParam().target->makeSeeds();
    for (std::uint32_t seed = 0; seed < GetParam().mutations; ++seed)
        Run(Mutator(seed).Mutate(seeds[seed % seeds.size()]));
}

TEST_P(FuzzCorpusTest, WhatOnceBrokeSomethingDoesSoNoMore)
{
    Run({});
    const std::filesystem::path finds = std::filesystem::path(QUORVANE_FINDS) / GetParam().target->name;
    if (std::filesystem::exists(finds))
        for (const auto& find : std::filesystem::directory_iterator(finds))
            Run(ContentOf(find.path()));
}

TEST_P(FuzzCorpusTest, RealFilesBreakNothing)
{
    const char* const corpus = std::getenv("QUORVANE_CORPUS");
    if (!corpus || !*corpus) {
        std::printf("QUORVANE_CORPUS isn't set: no real file was read\n");
        return;
    }
    for (const char* folder : GetParam().folders)
        for (const auto& file :
             std::filesystem::recursive_directory_iterator(std::filesystem::path(corpus) / folder))
            if (file.is_regular_file() && file.file_size() < 1 << 20)
                Run(ContentOf(file.path()));
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpusTest,
                         ::testing::Values(Case{&kCompoundFile, 4000, {}}, Case{&kItem, 500, {"ole-bad"}},
                                           Case{&kFolder, 500, {}}, Case{&kHashFile, 1000, {}},
                                           Case{&kExchange, 2000, {}}, Case{&kMsg, 300, {"msg", "ole-bad"}},
                                           Case{&kRegistry, 4000, {}}, Case{&kPackage, 200, {"ole-bad"}}),
                         [](const auto& tested) { return std::string(tested.param.target->name); });

// Every file with many scripts: what is done with it, and which of its writes are refused.
TEST(CompoundFileScriptsTest, FilesThatAreSoundStayWhatTheyAreSaidToBe)
{
    for (const Bytes& file : kCompoundFile.makeSeeds()) {
        for (std::uint32_t seed = 0; seed < 40; ++seed) {
            Bytes input = file;
            for (std::size_t i = 0; i < 8; ++i)
                input[input.size() - 8 + i] = static_cast<BYTE>((seed + 1) * 2654435761u >> (i * 3));
            kCompoundFile.run(input.data(), input.size());
        }
    }
}

}  // namespace
}  // namespace quorvane::fuzz
