#include "host/mime/property_list.h"

#include "host/mime/mapi_text.h"

namespace quorvane {

SPropValue& PropertyList::Add(ULONG tag)
{
    SPropValue& value = values_.emplace_back();
    value.ulPropTag = tag;
    return value;
}

void PropertyList::AddText(ULONG tag, std::string_view text)
{
    OleString& kept = texts_.emplace_back(MapiText(text));
    Add(tag).Value.lpszW = kept.data();
}

void PropertyList::AddLong(ULONG tag, LONG value)
{
    Add(tag).Value.l = value;
}

void PropertyList::AddBoolean(ULONG tag, bool value)
{
    Add(tag).Value.b = value ? 1 : 0;
}

void PropertyList::AddTime(ULONG tag, const FILETIME& value)
{
    Add(tag).Value.ft = value;
}

void PropertyList::AddBinary(ULONG tag, std::string_view bytes)
{
    std::string& kept = binaries_.emplace_back(bytes);
    SBinary& binary = Add(tag).Value.bin;
    binary.cb = static_cast<ULONG>(kept.size());
    binary.lpb = reinterpret_cast<BYTE*>(kept.data());
}

HRESULT PropertyList::SetOn(IMAPIProp& object)
{
    if (values_.empty())
        return S_OK;
    SPropProblemArray* problems = nullptr;
    HRESULT hr = object.SetProps(Count(), Values(), &problems);
    for (ULONG i = 0; problems && SUCCEEDED(hr) && i < problems->cProblem; ++i) {
        const SCODE problem = problems->aProblem[i].scode;
        if (FAILED(problem) && problem != MAPI_E_COMPUTED && problem != MAPI_E_NO_ACCESS)
            hr = problem;
    }
    if (problems)
        MAPIFreeBuffer(problems);
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace quorvane
