// fuzz/target.h: fuzz targets: each is one reader of foreign bytes, fed with whatever may come.
//
// libFuzzer runs a target in a program of its own (target_main.cpp); fuzz_corpus_test.cpp runs all of them
// over made inputs, over mutations of these, and over inputs that once broke something.
#ifndef QUORVANE_FUZZ_TARGET_H_
#define QUORVANE_FUZZ_TARGET_H_

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/com/com.h"

namespace quorvane::fuzz {

using Bytes = std::vector<BYTE>;

struct Target {
    // Of its program, "<name>_fuzz", and of its folder in finds/.
    const char* name;
    // Takes an input to its end. Aborts when something breaks a promise, with a word on standard error.
    void (*run)(const BYTE* data, std::size_t size);
    // Inputs that our own writers make. Throws when they can't.
    std::vector<Bytes> (*makeSeeds)();
};

extern const Target kCompoundFile;  // the reader and writer of compound files
extern const Target kItem;          // an item's storage in a package, or its "Contents" alone
extern const Target kFolder;        // the same of a folder
extern const Target kHashFile;      // a folder's hashes
extern const Target kMsg;           // a message on structured storage, on its way into a store
extern const Target kRegistry;      // the text that keeps settings off Windows
extern const Target kExchange;      // what members tell each other, behind seal and signature
extern const Target kPackage;       // a whole package, through the job that receives it

// A promise of the code under test.
inline void Require(bool condition, const std::string& what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzz: broken: %s\n", what.c_str());
    std::abort();
}

}  // namespace quorvane::fuzz

#endif  // QUORVANE_FUZZ_TARGET_H_
