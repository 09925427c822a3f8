// msgstore/store/test_switches.h: what lets a test see a store behave as other message stores may.
//
// All switches are off. Only a test turns them on, through an object that it gets from the store object:
// OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, ...). They hold for everyone in the process who has
// the store's file open, and are forgotten with the last of them. Hosts don't get to see this header.
#ifndef QUORVANE_MSGSTORE_STORE_TEST_SWITCHES_H_
#define QUORVANE_MSGSTORE_STORE_TEST_SWITCHES_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/com/iid.h"
#include "platform/com/mutex.h"
#include "platform/mapi/mapi.h"

inline constexpr IID IID_IStoreTestSwitches = {
    0x5d1f3a60, 0x7c5e, 0x4b0a, {0x9a, 0x3b, 0x2c, 0x61, 0x0e, 0x94, 0xd7, 0x18}};

// Threading: any thread may call.
struct IStoreTestSwitches : IUnknown {
    // Contents tables opened from now on show only those of their first columns that aren't among `tags`, in
    // calls and in notifications. S_OK; MAPI_E_INVALID_PARAMETER: no tags; E_OUTOFMEMORY.
    virtual HRESULT STDMETHODCALLTYPE DropColumns(ULONG count, const ULONG* tags) = 0;
    // Tables tell of whatever happens by one TABLE_CHANGED. S_OK.
    virtual HRESULT STDMETHODCALLTYPE TellOfTablesOnly(BOOL on) = 0;
    // The notifications of each call come in an order drawn by `seed` (ShuffleBySeed); 0: as it happened.
    // S_OK.
    virtual HRESULT STDMETHODCALLTYPE ShuffleNotifications(ULONG seed) = 0;
    // No sink is called any more; what happens gathers until this is turned off, or Deliver is called. A call
    // that is under way goes on. S_OK.
    virtual HRESULT STDMETHODCALLTYPE HoldNotifications(BOOL on) = 0;
    // Tells one subscription what has gathered for it, on the calling thread; for one thread at a time, while
    // notifications are held.
    //
    // number  [in]   of the subscription, from 0, in the order in which sessions came and then subscribed.
    // told    [out]  how many notifications its sink got; 0: there were none, and it wasn't called.
    //
    // S_OK; MAPI_E_NOT_FOUND: there is no such subscription.
    virtual HRESULT STDMETHODCALLTYPE Deliver(ULONG number, ULONG* told) = 0;
    // Of the tables' QueryRows the next `count` calls fail with MAPI_E_NETWORK_ERROR. S_OK.
    virtual HRESULT STDMETHODCALLTYPE FailRowReads(ULONG count) = 0;
    // Steps of long works are over when they begin, as on a machine that is too slow for more than one
    // message. S_OK.
    virtual HRESULT STDMETHODCALLTYPE HurrySteps(BOOL on) = 0;
};
QUORVANE_IID(IStoreTestSwitches, IID_IStoreTestSwitches);

namespace quorvane {

class StoreCore;

inline constexpr ULONG kPrTestSwitches = PROP_TAG(PT_OBJECT, 0x6602);

// Puts values into an order that a seed draws.
template <class Value>
void ShuffleBySeed(ULONG seed, Value* values, std::size_t count)
{
    std::uint64_t state = seed;
    for (std::size_t left = count; left > 1; --left) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        std::swap(values[left - 1], values[(state >> 33) % left]);
    }
}

// The switches of one store. Any thread may call.
class TestSwitches {
public:
    std::atomic<bool> tellsOfTablesOnly{false};
    std::atomic<bool> holds{false};
    std::atomic<ULONG> shuffleSeed{0};
    std::atomic<ULONG> failingRowReads{0};
    std::atomic<bool> hurriesSteps{false};

    // Whether this call is one of those.
    bool TakeFailingRowRead() noexcept
    {
        ULONG left = failingRowReads;
        while (left > 0 && !failingRowReads.compare_exchange_weak(left, left - 1)) {
        }
        return left > 0;
    }
    void DropColumns(std::vector<ULONG> tags) noexcept;
    // Takes the dropped ones out.
    void TakeDropped(std::vector<ULONG>& columns) const;

private:
    mutable Mutex lock_;
    std::vector<ULONG> dropped_ QV_GUARDED_BY(lock_);
};

// The object that turns them. E_NOINTERFACE; E_OUTOFMEMORY.
[[nodiscard]] HRESULT GiveTestSwitches(std::shared_ptr<StoreCore> core, REFIID iid, LPUNKNOWN* object);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TEST_SWITCHES_H_
