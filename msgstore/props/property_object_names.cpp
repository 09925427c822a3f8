// The half of PropertyObject that deals with names of properties.
#include <algorithm>
#include <cstring>

#include "msgstore/props/property_object.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

HRESULT GiveName(const PropertyName& name, const MapiAllocator& allocator, void* root,
                 LPMAPINAMEID* result) noexcept
{
    auto* const given = static_cast<LPMAPINAMEID>(allocator.AllocateMore(sizeof(MAPINAMEID), root));
    auto* const set = static_cast<LPGUID>(allocator.AllocateMore(sizeof(GUID), root));
    if (!given || !set)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    *given = MAPINAMEID{};
    *set = name.set;
    given->lpguid = set;
    given->ulKind = name.kind;
    if (name.kind == MNID_ID) {
        given->Kind.lID = name.number;
    } else {
        const std::size_t size = (name.text.size() + 1) * sizeof(WCHAR);
        auto* const text = static_cast<LPWSTR>(allocator.AllocateMore(size, root));
        if (!text)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        std::memcpy(text, name.text.c_str(), size);
        given->Kind.lpwstrName = text;
    }
    *result = given;
    return S_OK;
}

LPSPropTagArray NewTagArray(const std::vector<ULONG>& tags, const MapiAllocator& allocator) noexcept
{
    auto* const array = static_cast<LPSPropTagArray>(allocator.Allocate(CbNewSPropTagArray(tags.size() + 1)));
    if (array) {
        array->cValues = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), array->aulPropTag);
    }
    return array;
}

bool IsWanted(const PropertyName& name, const GUID* set, ULONG flags) noexcept
{
    if (set && !IsEqualGUID(*set, name.set))
        return false;
    return (flags & (name.kind == MNID_ID ? MAPI_NO_IDS : MAPI_NO_STRINGS)) == 0;
}

}  // namespace

HRESULT PropertyObject::NameOfAny(ULONG id, PropertyName& name)
{
    if (id >= kFirstNamedId)
        return Names().NameOf(id, name);
    name = PropertyName{};
    name.set = PS_MAPI;
    name.number = static_cast<LONG>(id);
    return id == PROP_ID_NULL ? MAPI_E_NOT_FOUND : S_OK;
}

HRESULT PropertyObject::ListNamed(const GUID* set, ULONG flags, std::vector<ULONG>& ids)
{
    std::vector<std::pair<ULONG, PropertyName>> entries;
    QV_RETURN_IF_FAILED(Names().All(entries));
    for (const auto& [id, name] : entries) {
        if (IsWanted(name, set, flags))
            ids.push_back(id);
    }
    return S_OK;
}

HRESULT PropertyObject::GiveNames(const std::vector<ULONG>& ids, ULONG* count, LPMAPINAMEID** names)
{
    const std::size_t size = std::max<std::size_t>(ids.size(), 1) * sizeof(LPMAPINAMEID);
    auto* const array = static_cast<LPMAPINAMEID*>(Allocator().Allocate(size));
    if (!array)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    std::fill_n(array, std::max<std::size_t>(ids.size(), 1), nullptr);
    bool errors = false;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        PropertyName name;
        HRESULT hr = NameOfAny(ids[i], name);
        errors = errors || FAILED(hr);
        if (SUCCEEDED(hr))
            hr = GiveName(name, Allocator(), array, &array[i]);
        if (hr == MAPI_E_NOT_ENOUGH_MEMORY) {
            Allocator().free(array);
            return hr;
        }
    }
    *count = static_cast<ULONG>(ids.size());
    *names = array;
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT PropertyObject::DoGetNamesFromIDs(LPSPropTagArray* tags, LPGUID propertySet, ULONG flags,
                                          ULONG* count, LPMAPINAMEID** names) noexcept
{
    if (!tags || !count || !names)
        return MAPI_E_INVALID_PARAMETER;
    *count = 0;
    *names = nullptr;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        std::vector<ULONG> ids;
        if (*tags) {
            for (ULONG i = 0; i < (*tags)->cValues; ++i)
                ids.push_back(PROP_ID((*tags)->aulPropTag[i]));
            return GiveNames(ids, count, names);
        }
        QV_RETURN_IF_FAILED(ListNamed(propertySet, flags, ids));
        std::vector<ULONG> listed;
        for (const ULONG id : ids)
            listed.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        LPSPropTagArray const array = NewTagArray(listed, Allocator());
        if (!array)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        const HRESULT hr = GiveNames(ids, count, names);
        if (FAILED(hr))
            Allocator().free(array);
        else
            *tags = array;
        return hr;
    });
}

HRESULT PropertyObject::IdOfAny(const MAPINAMEID* name, bool create, ULONG& id)
{
    if (!name || !name->lpguid)
        return MAPI_E_INVALID_PARAMETER;
    if (IsEqualGUID(*name->lpguid, PS_MAPI)) {
        id = static_cast<ULONG>(name->Kind.lID);
        return name->ulKind == MNID_ID && id > PROP_ID_NULL && id < kFirstNamedId ? S_OK : MAPI_E_NOT_FOUND;
    }
    PropertyName wanted;
    wanted.set = *name->lpguid;
    wanted.kind = name->ulKind;
    if (name->ulKind == MNID_ID)
        wanted.number = name->Kind.lID;
    else if (name->ulKind == MNID_STRING && name->Kind.lpwstrName)
        wanted.text = name->Kind.lpwstrName;
    else
        return MAPI_E_INVALID_PARAMETER;
    return Names().IdOf(wanted, create, id);
}

HRESULT PropertyObject::DoGetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                          LPSPropTagArray* tags) noexcept
{
    if (!tags || (count > 0 && !names))
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~static_cast<ULONG>(MAPI_CREATE)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    *tags = nullptr;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        std::vector<ULONG> found;
        bool errors = false;
        if (count == 0) {
            QV_RETURN_IF_FAILED(ListNamed(nullptr, 0, found));
            for (ULONG& id : found)
                id = PROP_TAG(PT_UNSPECIFIED, id);
        }
        for (ULONG i = 0; i < count; ++i) {
            ULONG id = 0;
            const HRESULT hr = IdOfAny(names[i], (flags & MAPI_CREATE) != 0, id);
            errors = errors || FAILED(hr);
            found.push_back(SUCCEEDED(hr) ? PROP_TAG(PT_UNSPECIFIED, id) : PROP_TAG(PT_ERROR, PROP_ID_NULL));
        }
        *tags = NewTagArray(found, Allocator());
        if (!*tags)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
    });
}

}  // namespace quorvane
