#include "platform/cfb/storage_enum.h"

#include "platform/com/result.h"

namespace quorvane::cfb {

// Goes on to the next element. stat: what is told of it, or null. S_FALSE at the end.
HRESULT CStorageEnum::Step(CompoundFile& file, STATSTG* stat)
{
    const DirEntry* entry = nullptr;
    const HRESULT hr = file.Next(*m_storage, m_last ? &*m_last : nullptr, &m_cursor, &entry);
    if (FAILED(hr))
        return hr == STG_E_NOMOREFILES ? S_FALSE : hr;
    if (stat)
        QV_TRY(FillStat(*entry, file.FormatVersion(), true, stat));
    if (!m_last)
        m_last.emplace();
    entry->CopyName(&*m_last);
    return S_OK;
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
        hr = m_root->Run(m_storage.get(), [&](CompoundFile& file) { return Step(file, &elements[done]); });
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
    for (; count > 0 && hr == S_OK; --count)
        hr = m_root->Run(m_storage.get(), [&](CompoundFile& file) { return Step(file, nullptr); });
    return hr;
}

HRESULT CStorageEnum::Reset()
{
    return m_root->Run(m_storage.get(), [&](CompoundFile&) {
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
    return m_root->Run(m_storage.get(), [&](CompoundFile&) -> HRESULT {
        *enumerator = MakeComObject<CStorageEnum>(m_root, m_storage, m_last).Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace quorvane::cfb
