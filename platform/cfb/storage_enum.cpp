#include "platform/cfb/storage_enum.h"

namespace quorvane::cfb {

// S_FALSE at the end.
HRESULT CStorageEnum::Peek(CompoundFile& file, DirEntry* entry)
{
    const HRESULT hr = file.Next(*m_storage, m_last ? &*m_last : nullptr, &m_cursor, entry);
    return hr == STG_E_NOMOREFILES ? S_FALSE : hr;
}

HRESULT CStorageEnum::Next(ULONG count, STATSTG* elements, ULONG* fetched)
{
    if (fetched)
        *fetched = 0;
    if (!elements)
        return STG_E_INVALIDPOINTER;
    if (count != 1 && !fetched)
        return STG_E_INVALIDPARAMETER;
    ULONG done = 0;
    HRESULT hr = S_OK;
    for (; done < count && hr == S_OK; done += hr == S_OK ? 1 : 0) {
        hr = m_root->Run(m_storage, [&](CompoundFile& file) {
            DirEntry entry;
            HRESULT next = Peek(file, &entry);
            if (next == S_OK)
                next = FillStat(entry, file.FormatVersion(), true, &elements[done]);
            if (next == S_OK)
                m_last = entry.Name();
            return next;
        });
    }
    if (FAILED(hr) && done > 0)
        hr = S_FALSE;  // what was fetched is told; the next call meets the failure again
    if (fetched)
        *fetched = done;
    return hr;
}

HRESULT CStorageEnum::Skip(ULONG count)
{
    HRESULT hr = S_OK;
    for (; count > 0 && hr == S_OK; --count) {
        hr = m_root->Run(m_storage, [&](CompoundFile& file) {
            DirEntry entry;
            const HRESULT next = Peek(file, &entry);
            if (next == S_OK)
                m_last = entry.Name();
            return next;
        });
    }
    return hr;
}

HRESULT CStorageEnum::Reset()
{
    return m_root->Run(m_storage, [&](CompoundFile&) {
        m_last.reset();
        m_cursor.version = 0;
        return S_OK;
    });
}

HRESULT CStorageEnum::Clone(IEnumSTATSTG** enumerator)
{
    if (!enumerator)
        return STG_E_INVALIDPOINTER;
    *enumerator = nullptr;
    return m_root->Run(m_storage, [&](CompoundFile&) -> HRESULT {
        *enumerator = MakeComObject<CStorageEnum>(m_root, m_storage, m_last).Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace quorvane::cfb
