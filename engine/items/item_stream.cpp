// The Stream property: a message as the image of a compound file, in an array of bytes.
#include <limits>

#include "engine/items/item.h"
#include "engine/session/trace/trace.h"
#include "platform/cfb/stg.h"

namespace quorvane {

namespace {

HRESULT ReadAll(ILockBytes& bytes, SafeArray& image) noexcept
{
    STATSTG stat{};
    HR_TRY_QUIET(bytes.Stat(&stat, STATFLAG_NONAME));
    if (stat.cbSize.QuadPart > std::numeric_limits<ULONG>::max())
        return E_OUTOFMEMORY;
    const ULONG size = static_cast<ULONG>(stat.cbSize.QuadPart);
    image = SafeArray::Attach(SafeArrayCreateVector(VT_UI1, 0, size));
    if (!image)
        return E_OUTOFMEMORY;
    ArrayView<BYTE> content;
    HR_TRY_QUIET(content.Open(image.Get()));
    ULONG read = 0;
    HR_TRY_QUIET(bytes.ReadAt(ULARGE_INTEGER{}, content.Elements().data(), size, &read));
    return read == size ? S_OK : STG_E_READFAULT;
}

HRESULT WriteAll(ILockBytes& bytes, std::span<const BYTE> image) noexcept
{
    ULONG written = 0;
    HR_TRY_QUIET(bytes.WriteAt(ULARGE_INTEGER{}, image.data(), static_cast<ULONG>(image.size()), &written));
    STATSTG stat{};
    HR_TRY_QUIET(bytes.Stat(&stat, STATFLAG_NONAME));
    return stat.cbSize.QuadPart == image.size() ? S_OK : STG_E_MEDIUMFULL;
}

}  // namespace

HRESULT CItem::get_Stream(VARIANT* pVal)
{
    const Traced traced{"CItem::get_Stream"};
    if (!pVal)
        return E_POINTER;
    VariantInit(pVal);
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    if (!m_pMessage) {
        pVal->vt = VT_ERROR;
        return S_OK;
    }
    MemoryStorage memory;
    HR_TRY(traced, memory.Create());
    HR_TRY(traced, CopyMessageTo(nullptr, *memory.storage));
    SafeArray image;
    HR_TRY(traced, ReadAll(*memory.bytes, image));
    *pVal = image.DetachAsVariant().Detach();
    return S_OK;
}

HRESULT CItem::put_Stream(VARIANT newVal)
{
    const Traced traced{"CItem::put_Stream"};
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    ReleaseMessage();
    ArrayView<BYTE> image;
    HR_TRY(traced, image.Open(newVal));
    if (image.Count() == 0)
        return S_OK;  // a deletion
    return traced(OpenStreamedMessage(image.Elements()));
}

HRESULT CItem::OpenStreamedMessage(std::span<const BYTE> image) noexcept
{
    HR_TRY_QUIET(CreateILockBytesOnHGlobal(nullptr, TRUE, m_pMessageLockBytes.Put()));
    HR_TRY_QUIET(WriteAll(*m_pMessageLockBytes, image));
    HR_TRY_QUIET(StgOpenStorageOnILockBytes(m_pMessageLockBytes.Get(), nullptr, kOpenMode, nullptr, 0,
                                            m_pMessageStorage.Put()));
    STATSTG stat{};
    HR_TRY_QUIET(m_pMessageStorage->Stat(&stat, STATFLAG_NONAME));
    HR_TRY_QUIET(m_MessageSession.Open());
    return OpenMessageOnStorage(m_MessageSession.Get(), *m_pMessageStorage, m_pMessage);
}

}  // namespace quorvane
