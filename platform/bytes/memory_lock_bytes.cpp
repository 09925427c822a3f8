#include "platform/bytes/memory_lock_bytes.h"

#include "platform/com/result.h"

namespace quorvane {

HRESULT CMemoryLockBytes::ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count, ULONG* read)
{
    if (read)
        *read = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    const MutexLock lock(m_lock);
    std::size_t part = 0;
    QV_TRY(m_bytes.ReadAt(offset.QuadPart, buffer, count, part));
    if (read)
        *read = static_cast<ULONG>(part);
    return S_OK;
}

HRESULT CMemoryLockBytes::WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count, ULONG* written)
{
    if (written)
        *written = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    const MutexLock lock(m_lock);
    QV_TRY(m_bytes.WriteAt(offset.QuadPart, buffer, count));
    if (written)
        *written = count;
    return S_OK;
}

HRESULT CMemoryLockBytes::SetSize(ULARGE_INTEGER size)
{
    const MutexLock lock(m_lock);
    return m_bytes.Resize(size.QuadPart);
}

HRESULT CMemoryLockBytes::Stat(STATSTG* stat, DWORD)
{
    if (!stat)
        return STG_E_INVALIDPOINTER;
    const MutexLock lock(m_lock);
    *stat = STATSTG{};
    stat->type = STGTY_LOCKBYTES;
    stat->cbSize.QuadPart = m_bytes.Size();
    stat->grfMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
    return S_OK;
}

}  // namespace quorvane
