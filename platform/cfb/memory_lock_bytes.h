// platform/cfb/memory_lock_bytes.h: an array of bytes in memory.
#ifndef QUORVANE_PLATFORM_CFB_MEMORY_LOCK_BYTES_H_
#define QUORVANE_PLATFORM_CFB_MEMORY_LOCK_BYTES_H_

#include <vector>

#include "platform/com/com_object.h"
#include "platform/com/mutex.h"

namespace quorvane::cfb {

// Grows as it is written to; what was never written reads as zeros. LockRegion and UnlockRegion give
// STG_E_INVALIDFUNCTION; E_OUTOFMEMORY comes where memory is short. Any thread may call.
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
    [[nodiscard]] HRESULT Resize(ULONGLONG size) QV_REQUIRES(m_lock);

    Mutex m_lock;
    std::vector<BYTE> m_bytes QV_GUARDED_BY(m_lock);
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_MEMORY_LOCK_BYTES_H_
