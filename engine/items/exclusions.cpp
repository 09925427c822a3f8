#include "engine/items/exclusions.h"

#include "platform/com/variant.h"

namespace quorvane {

namespace {

// The property set of address-book items.
constexpr GUID kPsetidAddress{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr LONG kFileAsId = 0x8005;

HRESULT AllocateTags(ULONG count, TagList& tags) noexcept
{
    const HRESULT hr = tags.Allocate(static_cast<ULONG>(sizeof(ULONG)) * (count + 1));
    if (SUCCEEDED(hr))
        tags->cValues = count;
    return hr;
}

ULONG CarriedTag(const VARIANT& element) noexcept
{
    Variant number;
    if (FAILED(number.Assign(element)) || FAILED(number.ChangeType(VT_UI4)))
        return 0;
    return number.Raw().ulVal;
}

ULONG AppliedTag(const VARIANT& element, IMessage& message) noexcept
{
    if (element.vt != VT_BSTR)
        return element.ulVal;
    ULONG tag = 0;
    if (ViewOf(element.bstrVal) == kFileAs && FAILED(FindFileAsTag(message, tag)))
        tag = 0;
    return tag;
}

// `TagOf` gives an element's tag.
template <class TagOf>
HRESULT BuildTags(const SafeArray& excluded, TagList& tags, TagOf tagOf) noexcept
{
    tags.Reset();
    ArrayView<VARIANT> elements;
    if (!excluded || FAILED(elements.Open(excluded.Get())) || elements.Count() == 0)
        return S_OK;
    if (const HRESULT hr = AllocateTags(elements.Count(), tags); FAILED(hr))
        return hr;
    ULONG* tag = tags->aulPropTag;
    for (const VARIANT& element : elements)
        *tag++ = tagOf(element);
    return S_OK;
}

}  // namespace

HRESULT CarriedExclusions(const SafeArray& excluded, TagList& tags) noexcept
{
    return BuildTags(excluded, tags, [](const VARIANT& element) { return CarriedTag(element); });
}

HRESULT AppliedExclusions(const SafeArray& excluded, IMessage& message, TagList& tags) noexcept
{
    return BuildTags(excluded, tags,
                     [&message](const VARIANT& element) { return AppliedTag(element, message); });
}

HRESULT FindFileAsTag(IMessage& message, ULONG& tag) noexcept
{
    GUID propertySet = kPsetidAddress;
    MAPINAMEID name{};
    name.lpguid = &propertySet;
    name.ulKind = MNID_ID;
    name.Kind.lID = kFileAsId;
    MAPINAMEID* names = &name;
    TagList tags;
    if (const HRESULT hr = message.GetIDsFromNames(1, &names, 0, tags.Put()); FAILED(hr))
        return hr;
    if (!tags || tags->cValues != 1 || PROP_ID(tags->aulPropTag[0]) == 0)
        return MAPI_E_NOT_FOUND;
    tag = tags->aulPropTag[0];
    return S_OK;
}

}  // namespace quorvane
