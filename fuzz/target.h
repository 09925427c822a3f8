// fuzz/compound_file_fuzz.h: the entry that libFuzzer calls, and the test that runs it over given inputs.
#ifndef QUORVANE_FUZZ_COMPOUND_FILE_FUZZ_H_
#define QUORVANE_FUZZ_COMPOUND_FILE_FUZZ_H_

#include <cstddef>
#include <cstdint>

// Returns 0; aborts when the compound files break a promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // QUORVANE_FUZZ_COMPOUND_FILE_FUZZ_H_
