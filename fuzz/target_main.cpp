// What libFuzzer calls, for the one target that QUORVANE_FUZZ_TARGET names. With a directory in the variable
// QUORVANE_FUZZ_SEEDS the program puts the target's seeds there and does nothing else.
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "fuzz/target.h"

namespace {

const quorvane::fuzz::Target& kTarget = quorvane::fuzz::QUORVANE_FUZZ_TARGET;

void WriteSeeds(const std::filesystem::path& directory)
{
    std::filesystem::create_directories(directory);
    int number = 0;
    for (const quorvane::fuzz::Bytes& seed : kTarget.makeSeeds()) {
        std::ofstream file(directory / ("seed-" + std::to_string(++number)), std::ios::binary);
        file.write(reinterpret_cast<const char*>(seed.data()), static_cast<std::streamsize>(seed.size()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    const char* const directory = std::getenv("QUORVANE_FUZZ_SEEDS");
    if (!directory)
        return 0;
    WriteSeeds(directory);
    std::exit(0);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kTarget.run(data, size);
    return 0;
}
