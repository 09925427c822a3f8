// platform/bytes/memory_lock_bytes.h: an array of bytes that is nobody's file.
#ifndef QUORVANE_PLATFORM_BYTES_MEMORY_LOCK_BYTES_H_
#define QUORVANE_PLATFORM_BYTES_MEMORY_LOCK_BYTES_H_

#include "platform/com/com_object.h"
#include "platform/com/mutex.h"
#include "platform/com/spill_bytes.h"

namespace quorvane {

// Grows as it is written to; what was never written reads as zeros. Up to SpillBytes::kMemoryLimit it lies in
// memory, beyond that in a temporary file: STG_E_MEDIUMFULL where that disk is full, E_OUTOFMEMORY where
// memory is short. LockRegion and UnlockRegion give STG_E_INVALIDFUNCTION. Any thread may call.
class CMemoryLockBytes final : public ComObject<CMemoryLockBytes, ILockBytes> {
public:
    HRESULT STDMETHODCALLTYPE ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count,
                                      ULONG* written) override;
    HRESULT STDMETHODCALLTYPE Flush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    // The name is null.
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;

private:
    Mutex m_lock;
    SpillBytes m_bytes QV_GUARDED_BY(m_lock);
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_MEMORY_LOCK_BYTES_H_
