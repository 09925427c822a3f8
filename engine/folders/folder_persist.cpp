// A folder's persisted properties: CustomInfo and ID, in this order. Identifiers of the local store don't
// travel: the other side knows a folder by its ID.
#include <new>

#include "engine/folders/folder.h"
#include "engine/items/contents_stream.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// Throws std::bad_alloc.
ContentsWriter PersistedForm(const Bstr& customInfo, const Bstr& id)
{
    ContentsWriter contents;
    contents.Append(customInfo);
    contents.Append(id);
    return contents;
}

}  // namespace

HRESULT CFolder::GetClassID(CLSID* clsid)
{
    if (!clsid)
        return E_POINTER;
    *clsid = CLSID_Folder;
    return S_OK;
}

HRESULT CFolder::IsDirty()
{
    return m_bRequiresSave ? S_OK : S_FALSE;
}

HRESULT CFolder::InitNew()
{
    m_bRequiresSave = true;
    return S_OK;
}

HRESULT CFolder::InitNew(IStorage* /*storage*/)
{
    return InitNew();
}

HRESULT CFolder::Load(IStorage* storage)
{
    if (!storage)
        return E_POINTER;
    ComPtr<IStream> stream;
    HR_TRY_QUIET(OpenContents(*storage, stream));
    return Load(stream.Get());
}

HRESULT CFolder::Load(IStream* stream)
{
    if (!stream)
        return E_POINTER;
    ContentsReader contents(*stream);
    HR_TRY_QUIET(contents.ReadVersion());
    HR_TRY_QUIET(contents.Read(m_bstrCustomInfo));
    HR_TRY_QUIET(contents.Read(m_bstrID));
    m_bRequiresSave = false;
    return S_OK;
}

HRESULT CFolder::Save(IStorage* storage, BOOL sameAsLoad)
{
    if (!storage)
        return E_POINTER;
    ComPtr<IStream> stream;
    HR_TRY_QUIET(CreateContents(*storage, stream));
    return Save(stream.Get(), sameAsLoad);
}

HRESULT CFolder::Save(IStream* stream, BOOL clearDirty)
try {
    if (!stream)
        return E_POINTER;
    HR_TRY_QUIET(PersistedForm(m_bstrCustomInfo, m_bstrID).WriteTo(*stream));
    if (clearDirty)
        m_bRequiresSave = false;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolder::GetSizeMax(ULARGE_INTEGER* size)
try {
    if (!size)
        return E_POINTER;
    size->QuadPart = PersistedForm(m_bstrCustomInfo, m_bstrID).Size();
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolder::SaveCompleted(IStorage* /*storage*/)
{
    return S_OK;
}

HRESULT CFolder::HandsOffStorage()
{
    return S_OK;
}

}  // namespace quorvane
