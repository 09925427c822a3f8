// storeaccess/testing/fake_mapi_state.h: what a test sees and sets of the fake MAPI library.
#ifndef QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_MAPI_STATE_H_
#define QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_MAPI_STATE_H_

#include <atomic>

namespace quorvane::testing {

struct FakeMapiState {
    std::atomic<int> initialized{
        0};  // calls of MAPIInitialize that succeeded, less those of MAPIUninitialize
    std::atomic<bool> refusesMemory{false};  // MAPIAllocateBuffer has none
};

// The library exports a function of this type as "FakeState".
using FakeStateFunction = FakeMapiState* (*)();

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_MAPI_STATE_H_
