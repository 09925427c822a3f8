#include "platform/cfb/memory_lock_bytes.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "platform/cfb/result.h"

namespace quorvane::cfb {

HRESULT CMemoryLockBytes::ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count, ULONG* read)
{
    if (read)
        *read = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    const MutexLock lock(m_lock);
    if (offset.QuadPart >= m_bytes.size() || count == 0)
        return S_OK;
    const auto at = static_cast<std::size_t>(offset.QuadPart);
    const std::size_t part = std::min<std::size_t>(count, m_bytes.size() - at);
    std::memcpy(buffer, &m_bytes[at], part);
    if (read)
        *read = static_cast<ULONG>(part);
    return S_OK;
}

HRESULT CMemoryLockBytes::Resize(ULONGLONG size)
{
    if (size > m_bytes.max_size())
        return STG_E_MEDIUMFULL;
    try {
        m_bytes.resize(static_cast<std::size_t>(size));
        if (m_bytes.size() < m_bytes.capacity() / 4)
            m_bytes.shrink_to_fit();
        return S_OK;
    } catch (const std::exception&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CMemoryLockBytes::WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count, ULONG* written)
{
    if (written)
        *written = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    if (count == 0)
        return S_OK;
    const MutexLock lock(m_lock);
    const ULONGLONG end = offset.QuadPart + count;
    if (end < offset.QuadPart)
        return STG_E_MEDIUMFULL;
    if (end > m_bytes.size())
        CFB_TRY(Resize(end));
    std::memcpy(&m_bytes[static_cast<std::size_t>(offset.QuadPart)], buffer, count);
    if (written)
        *written = count;
    return S_OK;
}

HRESULT CMemoryLockBytes::SetSize(ULARGE_INTEGER size)
{
    const MutexLock lock(m_lock);
    return Resize(size.QuadPart);
}

HRESULT CMemoryLockBytes::Stat(STATSTG* stat, DWORD)
{
    if (!stat)
        return STG_E_INVALIDPOINTER;
    const MutexLock lock(m_lock);
    *stat = STATSTG{};
    stat->type = STGTY_LOCKBYTES;
    stat->cbSize.QuadPart = m_bytes.size();
    stat->grfMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
    return S_OK;
}

}  // namespace quorvane::cfb
