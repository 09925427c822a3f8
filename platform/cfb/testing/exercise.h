// platform/cfb/testing/exercise.h: for tests: everything that can be done with a file that nobody trusts.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_EXERCISE_H_
#define QUORVANE_PLATFORM_CFB_TESTING_EXERCISE_H_

#include "platform/cfb/testing/series.h"

namespace quorvane::cfb::test {

// What came of a file, and what it cost.
struct Outcome {
    HRESULT opened = S_OK;
    HRESULT copied = S_OK;
    HRESULT walked = S_OK;
    Tree tree;
    std::uint64_t moved = 0;  // bytes read and written
    std::uint64_t calls = 0;  // of reading and writing
};

// Opens a file, copies all of it into another one, walks through it, and changes what can be changed. Every
// result but a crash is good.
inline Outcome ExerciseAll(const Bytes& file, Road road = Road::kLockBytes)
{
    Outcome outcome;
    Session source(road, file);
    const auto target = MakeComObject<FaultyBytes>();
    const std::uint64_t calls = source.Calls();
    const std::uint64_t moved = source.Moved();
    {
        ComPtr<IStorage>& root = source.root;
        ComPtr<IStorage> copy;
        outcome.opened = source.Open(kOpen);
        if (SUCCEEDED(outcome.opened) &&
            SUCCEEDED(CreateDocfileOnLockBytes(target.Get(), kCreate, copy.Put()))) {
            outcome.copied = root->CopyTo(0, nullptr, nullptr, copy.Get());
            outcome.walked = Walk(*root, "", &outcome.tree);
            (void)WriteStream(*root, "added", Pattern(6000, 1));
            (void)WriteStream(*root, "added too", Pattern(60, 1));
            for (const auto& [path, content] : outcome.tree) {
                if (path.find('/') == std::string::npos)
                    (void)root->DestroyElement(FromUtf8(path).c_str());
            }
        }
    }
    source.Close();
    outcome.moved = source.Moved() - moved + target->Moved();
    outcome.calls = source.Calls() - calls + target->Calls();
    return outcome;
}

// The same; tells how far reading came.
inline HRESULT Exercise(const Bytes& file, Road road = Road::kLockBytes)
{
    const Outcome outcome = ExerciseAll(file, road);
    return FAILED(outcome.opened) ? outcome.opened : outcome.walked;
}

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_EXERCISE_H_
