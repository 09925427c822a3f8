#include <algorithm>

#include "msgstore/message/embedded_backend.h"
#include "msgstore/message/message_object.h"
#include "msgstore/message/value_lock_bytes.h"
#include "msgstore/props/property_stream.h"
#include "msgstore/props/spool_value.h"
#include "msgstore/util/guarded.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

constexpr ULONG kDataId = PROP_ID(PR_ATTACH_DATA_OBJ);

}  // namespace

CAttach::CAttach(ComPtr<CMessage> message, ULONG number, std::shared_ptr<AttachmentSource> source,
                 bool writable)
    : m_message(std::move(message)),
      m_number(number),
      m_source(std::move(source)),
      m_writable(writable),
      m_isNew(!m_source)
{}

HRESULT CAttach::Load()
{
    if (m_loaded)
        return S_OK;
    if (m_source) {
        QV_RETURN_IF_FAILED(m_source->ReadProperties(m_bag));
        const HRESULT hr = m_source->OpenMessage(m_embedded);
        if (FAILED(hr) && hr != MAPI_E_NOT_FOUND)
            return hr;
    }
    m_loaded = true;
    return S_OK;
}

HRESULT CAttach::Stored(PropertyBag*& bag) noexcept
{
    const HRESULT hr = Guarded([&] { return Load(); });
    bag = &m_bag;
    return hr;
}

void CAttach::ListComputed(std::vector<ULONG>& tags)
{
    for (const ULONG tag : {PR_ATTACH_NUM, PR_ATTACH_SIZE, PR_OBJECT_TYPE, PR_ACCESS, PR_ACCESS_LEVEL,
                            PR_MAPPING_SIGNATURE, PR_RECORD_KEY})
        tags.push_back(tag);
    if (m_embedded)
        tags.push_back(PR_ATTACH_DATA_OBJ);
}

HRESULT CAttach::Compute(ULONG id, PropertyValue& value)
{
    QV_RETURN_IF_FAILED(Load());
    switch (id) {
        case PROP_ID(PR_ATTACH_NUM):
            value = PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(m_number));
            return S_OK;
        case PROP_ID(PR_ATTACH_SIZE): {
            SnapshotAttachment self(m_bag, m_embedded);
            std::uint64_t size = 0;
            QV_RETURN_IF_FAILED(SizeOfAttachment(self, m_message->Depth(), size));
            value = PropertyValue::Long(PR_ATTACH_SIZE,
                                        static_cast<LONG>(std::min<std::uint64_t>(size, INT32_MAX)));
            return S_OK;
        }
        case PROP_ID(PR_OBJECT_TYPE):
            value = PropertyValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH);
            return S_OK;
        case PROP_ID(PR_ACCESS):
            value = PropertyValue::Long(PR_ACCESS, static_cast<LONG>(m_message->Backend().Access()));
            return S_OK;
        case PROP_ID(PR_ACCESS_LEVEL):
            value = PropertyValue::Long(PR_ACCESS_LEVEL, m_writable ? MAPI_MODIFY : 0);
            return S_OK;
        case PROP_ID(PR_MAPPING_SIGNATURE): {
            const GUID signature = Names().Signature();
            value = PropertyValue::Binary(PR_MAPPING_SIGNATURE, &signature, sizeof(signature));
            return S_OK;
        }
        case PROP_ID(PR_RECORD_KEY): {
            const PropertyValue number = PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(m_number));
            value = PropertyValue::Binary(PR_RECORD_KEY, number.data.data(), number.data.size());
            return S_OK;
        }
        case kDataId:
            if (!m_embedded)
                return MAPI_E_NOT_FOUND;
            value = PropertyValue();
            value.tag = PR_ATTACH_DATA_OBJ;
            return S_OK;
        default:
            return MAPI_E_NOT_FOUND;
    }
}

HRESULT CAttach::CheckSettable(ULONG id) noexcept
{
    return IsOwnProperty(id) ? MAPI_E_COMPUTED : S_OK;
}

void CAttach::Changed(ULONG id)
{
    m_changed = true;
    // An attachment has one content: data set now takes the place of a message that was embedded.
    if (id == kDataId && m_bag.FindId(kDataId))
        m_embedded.reset();
}

bool CAttach::DropObject(ULONG id)
{
    if (id != kDataId || !m_embedded)
        return false;
    m_embedded.reset();
    return true;
}

HRESULT CAttach::PublishEmbedded(std::shared_ptr<MessageSource> embedded)
{
    QV_RETURN_IF_FAILED(CheckWritable());
    QV_RETURN_IF_FAILED(Load());
    m_bag.Erase(kDataId);
    m_embedded = std::move(embedded);
    m_changed = true;
    return S_OK;
}

HRESULT CAttach::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags, LPUNKNOWN* object) noexcept
{
    return Guarded([&]() -> HRESULT {
        if (PROP_ID(tag) != kDataId)
            return MAPI_E_NOT_FOUND;
        QV_RETURN_IF_FAILED(Load());
        if ((flags & (MAPI_CREATE | MAPI_MODIFY)) != 0)
            QV_RETURN_IF_FAILED(CheckWritable());
        if (IsEqualIID(iid, IID_IMessage) || IsEqualIID(iid, IID_IMAPIProp))
            return OpenEmbedded(flags, object);
        if (IsEqualIID(iid, IID_IStorage))
            return OpenStorage(flags, object);
        return IsEqualIID(iid, IID_IStream) ? OpenObjectStream(flags, object)
                                            : MAPI_E_INTERFACE_NOT_SUPPORTED;
    });
}

HRESULT CAttach::OpenEmbedded(ULONG flags, LPUNKNOWN* object)
{
    const bool create = (flags & MAPI_CREATE) != 0;
    if (!create && !m_embedded)
        return MAPI_E_NOT_FOUND;
    if (m_message->Depth() >= kDeepestEmbedding)
        return MAPI_E_TOO_COMPLEX;
    auto backend = std::make_shared<EmbeddedBackend>(ComPtr<CAttach>(this), create ? nullptr : m_embedded);
    const bool writable = m_writable && (flags & (MAPI_CREATE | MAPI_MODIFY)) != 0;
    auto message = MakeComObject<CMessage>(std::move(backend), writable, m_message->SharedLock(),
                                           m_message->Depth() + 1, std::function<void()>());
    *object = message.Detach();
    return *object ? S_OK : E_OUTOFMEMORY;
}

HRESULT CAttach::OpenStorage(ULONG flags, LPUNKNOWN* object)
{
    constexpr DWORD kMode = STGM_SHARE_EXCLUSIVE | STGM_DIRECT;
    const PropertyValue* const held = m_bag.Find(PR_ATTACH_DATA_OBJ);
    const bool create = (flags & MAPI_CREATE) != 0;
    if (!create && (!held || !held->large))
        return MAPI_E_NOT_FOUND;
    ComPtr<IStorage> storage;
    if (!create && (flags & MAPI_MODIFY) == 0) {
        const auto bytes = MakeReadBytes(held->large);
        QV_RETURN_IF_FAILED(
            StgOpenStorageOnILockBytes(bytes.Get(), nullptr, STGM_READ | kMode, nullptr, 0, storage.Put()));
        *object = storage.Detach();
        return S_OK;
    }
    auto image = std::make_shared<SpoolValue>();
    const auto bytes = MakeWriteBytes(image);
    if (create) {
        const DWORD mode = STGM_CREATE | STGM_READWRITE | kMode;
        QV_RETURN_IF_FAILED(StgCreateDocfileOnILockBytes(bytes.Get(), mode, 0, storage.Put()));
    } else {
        QV_RETURN_IF_FAILED(image->Assign(*held->large));
        const DWORD mode = STGM_READWRITE | kMode;
        QV_RETURN_IF_FAILED(
            StgOpenStorageOnILockBytes(bytes.Get(), nullptr, mode, nullptr, 0, storage.Put()));
    }
    PropertyValue value;
    value.tag = PR_ATTACH_DATA_OBJ;
    value.large = std::move(image);
    m_bag.Put(std::move(value));
    Changed(kDataId);
    *object = storage.Detach();
    return S_OK;
}

HRESULT CAttach::OpenObjectStream(ULONG flags, LPUNKNOWN* object)
{
    const PropertyValue* const held = m_bag.Find(PR_ATTACH_DATA_OBJ);
    if ((flags & (MAPI_CREATE | MAPI_MODIFY)) != 0)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    return held && held->large ? MakeReadStream(held->large, object) : MAPI_E_NOT_FOUND;
}

HRESULT CAttach::SaveChanges(ULONG flags)
{
    constexpr ULONG kKnown = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;
    if ((flags & ~kKnown) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        QV_RETURN_IF_FAILED(Load());
        if (m_changed || m_isNew || (flags & FORCE_SAVE) != 0) {
            QV_RETURN_IF_FAILED(TakeSmallValuesIn(m_bag));
            auto snapshot = std::make_shared<SnapshotAttachment>(m_bag, m_embedded);
            QV_RETURN_IF_FAILED(m_message->PublishAttachment(m_number, m_isNew, std::move(snapshot)));
            m_isNew = false;
            m_changed = false;
        }
        if ((flags & KEEP_OPEN_READONLY) != 0)
            m_writable = false;
        return S_OK;
    });
}

}  // namespace quorvane
