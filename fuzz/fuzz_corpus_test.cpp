// Runs the fuzz target over files made here, over mutations of them that are the same at each run, and over
// inputs that once broke something.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "fuzz/compound_file_fuzz.h"
#include "platform/cfb/format.h"
#include "platform/cfb/testing/series.h"

namespace quorvane::cfb::test {
namespace {

void RunTarget(Bytes input)
{
    EXPECT_EQ(0, LLVMFuzzerTestOneInput(input.data(), input.size()));
}

Bytes MakeFile(Layout layout, const std::vector<Step>& steps)
{
    Session session;
    session.bytes = MakeComObject<FaultyBytes>();
    EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(session.bytes.Get(), kCreate, session.root.Put(), layout));
    for (const Step& step : steps)
        EXPECT_EQ(S_OK, step.run(session)) << step.what;
    session.held.Reset();
    session.root.Reset();
    return session.bytes->Content();
}

// Files of few sectors, in which every byte tells something, and some larger ones.
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
    return files;
}

// Changes a file as a fuzzer does: numbers that matter at places that matter.
class Mutator {
public:
    explicit Mutator(std::uint32_t seed) : random_(seed) {}

    Bytes Mutate(Bytes file)
    {
        for (unsigned i = 1 + Number(4); i > 0 && !file.empty(); --i) {
            switch (Number(6)) {
                case 0:
                    file[Number(file.size())] = static_cast<BYTE>(random_());
                    break;
                case 1:
                    file.resize(Number(file.size()));
                    break;
                case 2:
                    CopySector(file);
                    break;
                default:
                    SetNumber(file);
            }
        }
        for (unsigned i = 0; i < 8; ++i)
            file.push_back(static_cast<BYTE>(random_()));
        return file;
    }

private:
    std::size_t Number(std::size_t below) { return random_() % below; }

    void CopySector(Bytes& file)
    {
        if (file.size() < 1024)
            return;
        const std::size_t sectors = file.size() / 512;
        const auto from = file.begin() + static_cast<std::ptrdiff_t>(Number(sectors) * 512);
        std::copy_n(Bytes(from, from + 512).begin(), 512,
                    file.begin() + static_cast<std::ptrdiff_t>(Number(sectors) * 512));
    }

    void SetNumber(Bytes& file)
    {
        if (file.size() < 8)
            return;
        const std::uint32_t kValues[] = {0,
                                         1,
                                         2,
                                         3,
                                         kDifatSector,
                                         kFatSector,
                                         kEndOfChain,
                                         kFreeSector,
                                         0x7FFFFFFF,
                                         4095,
                                         4096,
                                         static_cast<std::uint32_t>(Number(64)),
                                         static_cast<std::uint32_t>(Number(file.size()))};
        StoreU32(&file[Number(file.size() / 4 - 1) * 4], kValues[Number(std::size(kValues))]);
    }

    std::mt19937 random_;
};

TEST(FuzzCorpusTest, FilesThatAreSoundStayWhatTheyAreSaidToBe)
{
    for (const Bytes& file : MakeFiles()) {
        for (std::uint32_t seed = 0; seed < 40; ++seed) {
            Bytes input = file;
            for (unsigned i = 0; i < 8; ++i)
                input.push_back(static_cast<BYTE>((seed + 1) * 2654435761u >> (i * 3)));
            RunTarget(input);
        }
    }
}

TEST(FuzzCorpusTest, MutatedFilesEndInACode)
{
    const std::vector<Bytes> files = MakeFiles();
    for (std::uint32_t seed = 0; seed < 4000; ++seed)
        RunTarget(Mutator(seed).Mutate(files[seed % files.size()]));
}

TEST(FuzzCorpusTest, WhatOnceBrokeSomethingDoesSoNoMore)
{
    unsigned finds = 0;
    for (const auto& find : std::filesystem::directory_iterator(QUORVANE_FINDS "/compound_file")) {
        RunTarget(LoadFile(find.path()));
        ++finds;
    }
    EXPECT_LT(0u, finds);
}

}  // namespace
}  // namespace quorvane::cfb::test
