#include "engine/monitor/item_locks.h"

#include <new>

namespace quorvane {

namespace {

// Throws std::bad_alloc.
OleString KeyOf(BSTR entryId, BSTR storeId)
{
    OleString key(ViewOf(entryId));
    key += ViewOf(storeId);
    return key;
}

}  // namespace

void ItemLocks::Lock(BSTR entryId, BSTR storeId, VARIANT_BOOL autoUnlock) noexcept
{
    try {
        OleString key = KeyOf(entryId, storeId);
        const MutexLock lock(mutex_);
        locks_.emplace(std::move(key), autoUnlock);
    } catch (const std::bad_alloc&) {
        return;  // LockItem has no way to tell; the change will be reported as news
    }
}

HRESULT ItemLocks::Unlock(BSTR entryId, BSTR storeId) noexcept
{
    try {
        const OleString key = KeyOf(entryId, storeId);
        const MutexLock lock(mutex_);
        return locks_.erase(key) > 0 ? S_OK : E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

bool ItemLocks::IsLocked(BSTR entryId, BSTR storeId) const noexcept
{
    try {
        const OleString key = KeyOf(entryId, storeId);
        const MutexLock lock(mutex_);
        return locks_.count(key) > 0;
    } catch (const std::bad_alloc&) {
        return false;  // as Lock: rather news twice than a change lost
    }
}

void ItemLocks::Drop(BSTR entryId, BSTR storeId) noexcept
{
    try {
        const OleString key = KeyOf(entryId, storeId);
        const MutexLock lock(mutex_);
        const auto found = locks_.find(key);
        if (found != locks_.end() && found->second == VARIANT_TRUE)
            locks_.erase(found);
    } catch (const std::bad_alloc&) {
        return;  // the lock stays, and the next change drops it
    }
}

HRESULT MovedItems::Remember(BSTR entryId, BSTR id) noexcept
{
    try {
        OleString key(ViewOf(entryId));
        Bstr value(ViewOf(id));
        const MutexLock lock(mutex_);
        ids_.insert_or_assign(std::move(key), std::move(value));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT MovedItems::Find(BSTR entryId, BSTR* id) const noexcept
{
    if (!id)
        return E_POINTER;
    try {
        const OleString key(ViewOf(entryId));
        const MutexLock lock(mutex_);
        const auto found = ids_.find(key);
        return found != ids_.end() ? found->second.CopyTo(id) : E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT MovedItems::Forget(BSTR entryId) noexcept
{
    try {
        const OleString key(ViewOf(entryId));
        const MutexLock lock(mutex_);
        return ids_.erase(key) > 0 ? S_OK : E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
