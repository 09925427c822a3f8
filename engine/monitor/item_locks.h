// monitor/item_locks.h: the session's two small tables by which the notification path tells news from what is
// known already: items that the host has locked, and items that turned up in another folder.
//
// Both live in memory as long as the session. Threading: any thread may call; each table has a lock inside.
#ifndef QUORVANE_ENGINE_MONITOR_ITEM_LOCKS_H_
#define QUORVANE_ENGINE_MONITOR_ITEM_LOCKS_H_

#include <map>
#include <unordered_map>

#include "platform/com/bstr.h"
#include "platform/com/mutex.h"

namespace quorvane {

// Says before a change: this one is the host's own. A lock with AutoUnlock swallows one change, a lock
// without swallows every change until it is taken off.
//
// The key is the item's EntryID text directly followed by the StoreID text. Neither needs to exist; null
// counts as empty.
class ItemLocks {
public:
    // Adds a lock; one that is there already stays as it was. Memory that runs short isn't reported.
    void Lock(BSTR entryId, BSTR storeId, VARIANT_BOOL autoUnlock) noexcept;
    // Takes a lock off, whatever its AutoUnlock. S_OK; E_FAIL: there is none.
    [[nodiscard]] HRESULT Unlock(BSTR entryId, BSTR storeId) noexcept;
    bool IsLocked(BSTR entryId, BSTR storeId) const noexcept;
    // Takes a lock off if its AutoUnlock is exactly VARIANT_TRUE.
    void Drop(BSTR entryId, BSTR storeId) noexcept;

private:
    mutable Mutex mutex_;
    std::map<OleString, VARIANT_BOOL> locks_ QV_GUARDED_BY(mutex_);
};

// An item's old ID by its EntryID text. Null texts count as empty.
class MovedItems {
public:
    // Replaces an older ID. S_OK; E_FAIL: no memory.
    [[nodiscard]] HRESULT Remember(BSTR entryId, BSTR id) noexcept;
    // id  [out]  a copy for the caller; untouched after a failure.
    // S_OK; E_FAIL: not there; E_POINTER; E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Find(BSTR entryId, BSTR* id) const noexcept;
    // S_OK; E_FAIL: not there.
    [[nodiscard]] HRESULT Forget(BSTR entryId) noexcept;

private:
    mutable Mutex mutex_;
    std::unordered_map<OleString, Bstr> ids_ QV_GUARDED_BY(mutex_);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_ITEM_LOCKS_H_
