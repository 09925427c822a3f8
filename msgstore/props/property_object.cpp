#include "msgstore/props/property_object.h"

#include <algorithm>

#include "msgstore/props/property_stream.h"
#include "msgstore/props/spool_value.h"
#include "msgstore/props/text_encoding.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

// What a text whose kind the caller left open is given out as.
ULONG ListedType(ULONG type, ULONG flags) noexcept
{
    if (!IsTextType(type) || (flags & MAPI_UNICODE) != 0)
        return type;
    return (type & MV_FLAG) | PT_STRING8;
}

bool IsUsableId(ULONG id) noexcept
{
    return id != PROP_ID_NULL && id != PROP_ID_INVALID;
}

// Long values leave the bag's row, so that only what is small is ever held twice.
void MoveOutOfLine(PropertyValue& value)
{
    if (value.data.size() > kListedValueLimit && (value.type() & MV_FLAG) == 0)
        value.large = std::make_shared<SpoolValue>(std::exchange(value.data, Bytes()));
}

}  // namespace

HRESULT GiveProblems(const std::vector<SPropProblem>& found, const MapiAllocator& allocator,
                     LPSPropProblemArray* problems) noexcept
{
    if (!problems)
        return S_OK;
    *problems = nullptr;
    if (found.empty())
        return S_OK;
    auto* const array =
        static_cast<LPSPropProblemArray>(allocator.Allocate(CbNewSPropProblemArray(found.size())));
    if (!array)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    array->cProblem = static_cast<ULONG>(found.size());
    std::copy(found.begin(), found.end(), array->aProblem);
    *problems = array;
    return S_OK;
}

const MapiAllocator& PropertyObject::Allocator() noexcept
{
    static const MapiAllocator own;
    return own;
}

HRESULT PropertyObject::OpenObject(ULONG, REFIID, ULONG, ULONG, LPUNKNOWN*) noexcept
{
    return MAPI_E_NO_SUPPORT;
}

bool PropertyObject::DropObject(ULONG)
{
    return false;
}

HRESULT PropertyObject::CopyObject(ULONG, IMAPIProp&, ULONG) noexcept
{
    return S_OK;
}

bool PropertyObject::IsKnownUnloaded(ULONG)
{
    return false;
}

HRESULT PropertyObject::Lookup(ULONG tag, PropertyBag* bag, PropertyValue& place, const PropertyValue*& value)
{
    const HRESULT computed = Compute(PROP_ID(tag), place);
    if (FAILED(computed) && computed != MAPI_E_NOT_FOUND)
        return computed;
    if (FAILED(computed)) {
        if (!bag)
            QV_RETURN_IF_FAILED(Stored(bag));
        value = bag->Find(tag);
    } else {
        PropertyBag one;
        one.Put(place);
        value = one.Find(tag) ? &place : nullptr;
    }
    return value ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT PropertyObject::AllTags(ULONG flags, std::vector<ULONG>& tags)
{
    PropertyBag* bag = nullptr;
    QV_RETURN_IF_FAILED(Stored(bag));
    ListComputed(tags);
    const auto byId = [](ULONG a, ULONG b) { return PROP_ID(a) < PROP_ID(b); };
    std::sort(tags.begin(), tags.end(), byId);
    std::vector<ULONG> stored;
    for (const PropertyValue& value : *bag) {
        if (!std::binary_search(tags.begin(), tags.end(), value.tag, byId))
            stored.push_back(value.tag);
    }
    tags.insert(tags.end(), stored.begin(), stored.end());
    std::sort(tags.begin(), tags.end(), byId);
    for (ULONG& tag : tags)
        tag = CHANGE_PROP_TYPE(tag, ListedType(PROP_TYPE(tag), flags));
    return S_OK;
}

HRESULT PropertyObject::GiveOne(ULONG tag, ULONG flags, PropertyBag* bag, void* root, SPropValue& result)
{
    PropertyValue place;
    const PropertyValue* value = nullptr;
    HRESULT hr = Lookup(tag, bag, place, value);
    if (SUCCEEDED(hr)) {
        const ULONG codePage = bag ? StatedCodePage(*bag) : 0;
        const ULONG asked = PROP_TYPE(tag);
        const ULONG type = asked == PT_UNSPECIFIED ? ListedType(value->type(), flags) : asked;
        hr = ToSPropValue(*value, type, Allocator(), root, result, codePage);
    }
    if (FAILED(hr)) {
        result.ulPropTag = CHANGE_PROP_TYPE(tag, PT_ERROR);
        result.Value.err = hr;
    }
    return hr;
}

HRESULT PropertyObject::GiveProps(const std::vector<ULONG>& tags, ULONG flags, ULONG* count,
                                  LPSPropValue* values)
{
    // Loaded at once, or not at all: what can't be read fails as a whole.
    PropertyBag* bag = nullptr;
    if (!std::all_of(tags.begin(), tags.end(), [this](ULONG tag) { return IsKnownUnloaded(PROP_ID(tag)); }))
        QV_RETURN_IF_FAILED(Stored(bag));
    const std::size_t size = std::max<std::size_t>(tags.size(), 1) * sizeof(SPropValue);
    auto* const array = static_cast<LPSPropValue>(Allocator().Allocate(size));
    if (!array)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    bool errors = false;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        array[i] = SPropValue{};
        const HRESULT one = Guarded([&] { return GiveOne(tags[i], flags, bag, array, array[i]); });
        errors = errors || FAILED(one);
    }
    *count = static_cast<ULONG>(tags.size());
    *values = array;
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT PropertyObject::DoGetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                   LPSPropValue* values) noexcept
{
    if (!count || !values || (tags && tags->cValues == 0))
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~static_cast<ULONG>(MAPI_UNICODE)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    *count = 0;
    *values = nullptr;
    return Guarded([&] {
        const Guard lock(Lock());
        std::vector<ULONG> wanted;
        if (tags)
            wanted.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        else
            QV_RETURN_IF_FAILED(AllTags(flags, wanted));
        return GiveProps(wanted, flags, count, values);
    });
}

HRESULT PropertyObject::DoGetPropList(ULONG flags, LPSPropTagArray* tags) noexcept
{
    if (!tags)
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~static_cast<ULONG>(MAPI_UNICODE)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    *tags = nullptr;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        std::vector<ULONG> all;
        QV_RETURN_IF_FAILED(AllTags(flags, all));
        auto* const array =
            static_cast<LPSPropTagArray>(Allocator().Allocate(CbNewSPropTagArray(all.size() + 1)));
        if (!array)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        array->cValues = static_cast<ULONG>(all.size());
        std::copy(all.begin(), all.end(), array->aulPropTag);
        *tags = array;
        return S_OK;
    });
}

HRESULT PropertyObject::SetOne(PropertyBag& bag, const SPropValue& value)
{
    const ULONG id = PROP_ID(value.ulPropTag);
    if (!IsUsableId(id))
        return MAPI_E_INVALID_PARAMETER;
    QV_RETURN_IF_FAILED(CheckSettable(id));
    PropertyName name;
    if (id >= kFirstNamedId && FAILED(Names().NameOf(id, name)))
        return MAPI_E_UNEXPECTED_ID;
    PropertyValue kept;
    QV_RETURN_IF_FAILED(FromSPropValue(value, kept));
    MoveOutOfLine(kept);
    bag.Put(std::move(kept));
    Changed(id);
    return S_OK;
}

HRESULT PropertyObject::DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) noexcept
{
    if (problems)
        *problems = nullptr;
    if (count == 0 || !values)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        std::vector<SPropProblem> found;
        for (ULONG i = 0; i < count; ++i) {
            // What a caller passes on from its own GetProps may hold errors; they mean no value.
            if (PROP_TYPE(values[i].ulPropTag) == PT_ERROR)
                continue;
            if (const HRESULT hr = SetOne(*bag, values[i]); FAILED(hr))
                found.push_back({i, values[i].ulPropTag, hr});
        }
        return GiveProblems(found, Allocator(), problems);
    });
}

HRESULT PropertyObject::DeleteOne(PropertyBag& bag, ULONG id)
{
    if (!IsUsableId(id))
        return S_OK;
    QV_RETURN_IF_FAILED(CheckSettable(id));
    const bool stored = bag.Erase(id);
    if (DropObject(id) || stored)
        Changed(id);
    return S_OK;
}

HRESULT PropertyObject::DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) noexcept
{
    if (problems)
        *problems = nullptr;
    if (!tags || tags->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        std::vector<SPropProblem> found;
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const ULONG tag = tags->aulPropTag[i];
            if (const HRESULT hr = DeleteOne(*bag, PROP_ID(tag)); FAILED(hr))
                found.push_back({i, tag, hr});
        }
        return GiveProblems(found, Allocator(), problems);
    });
}

HRESULT PropertyObject::ValueForReading(ULONG tag, ULONG& type, std::shared_ptr<LargeValue>& value)
{
    PropertyValue place;
    const PropertyValue* found = nullptr;
    QV_RETURN_IF_FAILED(Lookup(tag, nullptr, place, found));
    type = PROP_TYPE(tag) == PT_UNSPECIFIED ? found->type() : PROP_TYPE(tag);
    if (type != PT_STRING8 && type != PT_UNICODE && type != PT_BINARY)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (found->type() == type) {
        value = found->large ? found->large : std::make_shared<SpoolValue>(found->data);
        return S_OK;
    }
    // Text of the other kind is converted whole.
    PropertyBag* bag = nullptr;
    QV_RETURN_IF_FAILED(Stored(bag));
    Bytes bytes = found->data;
    if (found->large)
        QV_RETURN_IF_FAILED(ReadWhole(*found->large, kWholeTextLimit, bytes));
    value = std::make_shared<SpoolValue>(ConvertText(bytes, found->type(), type, StatedCodePage(*bag)));
    return S_OK;
}

HRESULT PropertyObject::ValueForWriting(ULONG tag, bool discard, ULONG& type,
                                        std::shared_ptr<SpoolValue>& value)
{
    QV_RETURN_IF_FAILED(CheckWritable());
    QV_RETURN_IF_FAILED(CheckSettable(PROP_ID(tag)));
    std::shared_ptr<LargeValue> before;
    const HRESULT hr = ValueForReading(tag, type, before);
    if (FAILED(hr) && (hr != MAPI_E_NOT_FOUND || !discard))
        return hr;
    if (FAILED(hr))
        type = PROP_TYPE(tag);
    if (type != PT_STRING8 && type != PT_UNICODE && type != PT_BINARY)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    value = std::make_shared<SpoolValue>();
    return discard ? S_OK : value->Assign(*before);
}

HRESULT PropertyObject::OpenStream(ULONG tag, ULONG interfaceOptions, ULONG flags, LPUNKNOWN* object)
{
    const bool create = (flags & MAPI_CREATE) != 0;
    if (!create && (flags & MAPI_MODIFY) == 0) {
        std::shared_ptr<LargeValue> value;
        ULONG type = 0;
        QV_RETURN_IF_FAILED(ValueForReading(tag, type, value));
        return MakeReadStream(std::move(value), object);
    }
    std::shared_ptr<SpoolValue> value;
    ULONG type = 0;
    QV_RETURN_IF_FAILED(ValueForWriting(tag, create, type, value));
    const ULONG stored = CHANGE_PROP_TYPE(tag, type);
    if (create)
        QV_RETURN_IF_FAILED(Relink(stored, value));
    const std::uint64_t start = (interfaceOptions & STREAM_APPEND) != 0 ? value->Size() : 0;
    return MakeWriteStream(*this, stored, std::move(value), start, object);
}

HRESULT PropertyObject::DoOpenProperty(ULONG tag, LPCIID iid, ULONG interfaceOptions, ULONG flags,
                                       LPUNKNOWN* object) noexcept
{
    if (!iid || !object)
        return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    if ((flags & ~static_cast<ULONG>(MAPI_CREATE | MAPI_MODIFY | MAPI_DEFERRED_ERRORS)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&] {
        const Guard lock(Lock());
        if (PROP_TYPE(tag) == PT_OBJECT)
            return OpenObject(tag, *iid, interfaceOptions, flags, object);
        if (!IsEqualIID(*iid, IID_IStream) && !IsEqualIID(*iid, IID_ISequentialStream))
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        if (PROP_ID(tag) >= kFirstNamedId && (flags & MAPI_CREATE) != 0) {
            PropertyName name;
            if (FAILED(Names().NameOf(PROP_ID(tag), name)))
                return MAPI_E_UNEXPECTED_ID;
        }
        return OpenStream(tag, interfaceOptions, flags, object);
    });
}

HRESULT PropertyObject::Relink(ULONG tag, const std::shared_ptr<SpoolValue>& value) noexcept
{
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        const PropertyValue* const held = bag->FindId(PROP_ID(tag));
        if (!held || held->large != value || held->tag != tag) {
            PropertyValue linked;
            linked.tag = tag;
            linked.large = value;
            bag->Put(std::move(linked));
        }
        Changed(PROP_ID(tag));
        return S_OK;
    });
}

}  // namespace quorvane
