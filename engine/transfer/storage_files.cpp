#include "engine/transfer/storage_files.h"

#include <new>
#include <vector>

#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/session/trace/trace.h"
#include "platform/com/enum_variant.h"
#include "platform/com/variant.h"
#include "platform/file/path.h"

namespace quorvane {

HRESULT CStorageFiles::Init() noexcept
try {
    const Traced traced{"CStorageFiles::Init"};
    DatabaseSession session;
    HR_TRY(traced, m_pSession->Database().OpenSession(session));
    Rowset rows;
    HR_TRY_QUIET(TracedStatement(
        traced, session.Query(statements::kReadStorageFiles, columns::kReadStorageFiles, rows)));
    HRESULT hr = S_OK;
    while ((hr = rows.Step()) == S_OK)
        HR_IGNORE(traced(TakeRow(rows)), "the other packages are taken all the same");
    return hr == kEndOfRowset ? S_OK : TracedStatement(traced, hr);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFiles::TakeRow(const Rowset& row)
{
    Bstr recipients;
    Bstr path;
    double status = 0;
    HR_TRY_QUIET(row.GetText(1, recipients));
    HR_TRY_QUIET(row.GetText(2, path));
    HR_TRY_QUIET(row.GetNumber(3, status));
    const ComPtr<CStorageFile> package = MakeComObject<CStorageFile>(m_pSession, m_pKept);
    if (!package)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(package->Restore(recipients.Get(), path.Get(), status != 0 ? VARIANT_TRUE : VARIANT_FALSE));
    if (!PathExists(Narrow(path.View()))) {
        Traced{"CStorageFiles::Init"}.Line(
            "Warning: Storage Directory was deleted from Outbox without sending");
        return package->Delete();
    }
    MutexLock lock(m_Lock);
    m_Packages.insert_or_assign(std::move(recipients), package);
    return S_OK;
}

ComPtr<IStorageFile> CStorageFiles::FindByKey(BSTR recipients) const noexcept
{
    MutexLock lock(m_Lock);
    const auto entry = m_Packages.find(recipients);
    return entry == m_Packages.end() ? nullptr : ComPtr<IStorageFile>(entry->second);
}

std::pair<Bstr, ComPtr<IStorageFile>> CStorageFiles::FindByPlace(LONG index) const
{
    MutexLock lock(m_Lock);
    if (index < 1 || static_cast<size_t>(index) > m_Packages.size())
        return {};
    const auto entry = std::next(m_Packages.begin(), index - 1);
    return {entry->first, entry->second};
}

CStorageFiles::Packages CStorageFiles::Snapshot() const
{
    MutexLock lock(m_Lock);
    return m_Packages;
}

HRESULT CStorageFiles::get__NewEnum(IUnknown** pVal)
try {
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    std::vector<Variant> packages;
    for (const auto& [recipients, package] : Snapshot())
        packages.push_back(Variant::Dispatch(package.Get()));
    return CEnumVariant::Create(std::move(packages), pVal);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFiles::get_Count(LONG* pVal)
{
    if (!pVal)
        return E_POINTER;
    MutexLock lock(m_Lock);
    *pVal = static_cast<LONG>(m_Packages.size());
    return S_OK;
}

HRESULT CStorageFiles::get_Item(VARIANT Index, VARIANT* pvar)
try {
    if (!pvar)
        return E_POINTER;
    VariantInit(pvar);
    Variant index;
    HR_TRY_QUIET(index.Assign(Index));
    ComPtr<IStorageFile> package;
    if (index.Is(VT_BSTR)) {
        package = FindByKey(index.Raw().bstrVal);
    } else {
        HR_TRY_QUIET(index.ChangeType(VT_I4));
        if (index.Raw().lVal < 1)
            return E_INVALIDARG;
        package = FindByPlace(index.Raw().lVal).second;
    }
    return package ? Variant::Dispatch(package.Get()).CopyTo(pvar) : E_FAIL;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

bool CStorageFiles::Reserve(const Bstr& recipients)
{
    MutexLock lock(m_Lock);
    while (m_Reserved.count(recipients) != 0)
        m_ReservationEnded.Wait(m_Lock);
    return m_Packages.count(recipients) == 0 && m_Reserved.insert(recipients).second;
}

void CStorageFiles::EndReservation(const Bstr& recipients) noexcept
{
    MutexLock lock(m_Lock);
    m_Reserved.erase(recipients);
    m_ReservationEnded.NotifyAll();
}

HRESULT CStorageFiles::Add(BSTR Recipients, IStorageFile** pVal)
try {
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    const Bstr key = Bstr::CopyOf(Recipients);
    Bstr entry = key;
    if (!Reserve(key))
        return E_FAIL;
    ComPtr<CStorageFile> package;
    HRESULT hr = Make(Recipients, package);
    if (SUCCEEDED(hr)) {
        try {
            MutexLock lock(m_Lock);
            m_Packages.insert_or_assign(std::move(entry), package);
        } catch (const std::bad_alloc&) {
            hr = E_OUTOFMEMORY;
        }
    }
    EndReservation(key);
    return SUCCEEDED(hr) ? ComPtr<IStorageFile>(package).CopyTo(pVal) : hr;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFiles::Make(BSTR recipients, ComPtr<CStorageFile>& package) noexcept
{
    const Traced traced{"CStorageFiles::Add"};
    const ComPtr<CStorageFile> made = MakeComObject<CStorageFile>(m_pSession, m_pKept);
    if (!made)
        return traced(E_OUTOFMEMORY);
    HR_TRY(traced, made->put_Recipients(recipients));
    HR_TRY_QUIET(AppendRow(recipients, *made.Get()));
    package = made;
    return S_OK;
}

HRESULT CStorageFiles::AppendRow(BSTR recipients, IStorageFile& package) noexcept
{
    const Traced traced{"CStorageFiles::Add"};
    DatabaseSession session;
    HR_TRY(traced, m_pSession->Database().OpenSession(session));
    Bstr path;
    HR_TRY(traced, package.get_Path(path.Put()));
    StatementParameters parameters;
    parameters.Text(width::kRecipients, recipients).Text(width::kInsertedPath, path.Get()).Byte(0);
    return TracedStatement(traced, session.Execute(statements::kAddStorageFile, parameters));
}

// A writer that unlocks its package from here on closes it itself.
HRESULT CStorageFiles::KeepOpen(BOOL keep)
try {
    *m_pKept = keep != FALSE;
    if (!keep)
        for (const auto& [recipients, package] : Snapshot())
            package->CloseIdle();
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFiles::Remove(VARIANT Index)
{
    Variant index;
    HR_TRY_QUIET(index.Assign(Index));
    if (!index.Is(VT_BSTR)) {
        HR_TRY_QUIET(index.ChangeType(VT_I4));
        return RemoveByIndex(index.Raw().lVal);
    }
    const ComPtr<IStorageFile> package = FindByKey(index.Raw().bstrVal);
    return package ? DeleteAndErase(index.Raw().bstrVal, *package.Get()) : E_FAIL;
}

HRESULT CStorageFiles::RemoveByIndex(LONG index) noexcept
try {
    const auto [recipients, package] = FindByPlace(index);
    return package ? DeleteAndErase(recipients.Get(), *package.Get()) : E_INVALIDARG;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

// An entry goes only once its package has been forgotten.
HRESULT CStorageFiles::DeleteAndErase(BSTR recipients, IStorageFile& package) noexcept
{
    HR_TRY_QUIET(package.Delete());
    ComPtr<CStorageFile> removed;
    MutexLock lock(m_Lock);
    const auto entry = m_Packages.find(recipients);
    if (entry != m_Packages.end() && static_cast<IStorageFile*>(entry->second.Get()) == &package) {
        removed = std::move(entry->second);
        m_Packages.erase(entry);
    }
    return S_OK;
}

}  // namespace quorvane
