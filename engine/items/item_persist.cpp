// An item's persisted properties: ID, FolderID, CustomInfo and Action, in this order.
#include <new>

#include "engine/items/contents_stream.h"
#include "engine/items/item.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// Throws std::bad_alloc.
ContentsWriter PersistedForm(const CItem& item)
{
    ContentsWriter contents;
    contents.Append(item.m_bstrID);
    contents.Append(item.m_bstrFolderID);
    contents.Append(item.m_bstrCustomInfo);
    contents.Append(item.m_lAction);
    return contents;
}

}  // namespace

HRESULT CItem::GetClassID(CLSID* clsid)
{
    if (!clsid)
        return E_POINTER;
    *clsid = CLSID_Item;
    return S_OK;
}

HRESULT CItem::IsDirty()
{
    return m_bRequiresSave ? S_OK : S_FALSE;
}

HRESULT CItem::InitNew()
{
    m_bRequiresSave = true;
    return S_OK;
}

HRESULT CItem::InitNew(IStorage* /*storage*/)
{
    return InitNew();
}

HRESULT CItem::Load(IStorage* storage)
{
    if (!storage)
        return E_POINTER;
    ComPtr<IStream> stream;
    HR_TRY_QUIET(OpenContents(*storage, stream));
    return Load(stream.Get());
}

HRESULT CItem::Load(IStream* stream)
{
    if (!stream)
        return E_POINTER;
    ContentsReader contents(*stream);
    HR_TRY_QUIET(contents.ReadVersion());
    HR_TRY_QUIET(contents.Read(m_bstrID));
    HR_TRY_QUIET(contents.Read(m_bstrFolderID));
    HR_TRY_QUIET(contents.Read(m_bstrCustomInfo));
    HR_TRY_QUIET(contents.Read(m_lAction));
    m_bRequiresSave = false;
    return S_OK;
}

HRESULT CItem::Save(IStream* stream, BOOL clearDirty)
try {
    if (!stream)
        return E_POINTER;
    HR_TRY_QUIET(PersistedForm(*this).WriteTo(*stream));
    if (clearDirty)
        m_bRequiresSave = false;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CItem::GetSizeMax(ULARGE_INTEGER* size)
try {
    if (!size)
        return E_POINTER;
    size->QuadPart = PersistedForm(*this).Size();
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CItem::SaveCompleted(IStorage* /*storage*/)
{
    return S_OK;
}

HRESULT CItem::HandsOffStorage()
{
    return S_OK;
}

}  // namespace quorvane
