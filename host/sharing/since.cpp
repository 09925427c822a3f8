#include "host/sharing/since.h"

#include <cstdio>
#include <string>

#include "quorvane3/mapi.h"
#include "quorvane3/object_model.h"

namespace quorvane::host {

namespace {

bool IsOfForm(std::string_view text, std::string_view form)
{
    if (text.size() != form.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (form[i] == '0' ? text[i] < '0' || text[i] > '9' : text[i] != form[i])
            return false;
    return true;
}

SRestriction NotBefore(ULONG tag, SPropValue& value)
{
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty.relop = RELOP_GE;
    restriction.res.resProperty.ulPropTag = tag;
    restriction.res.resProperty.lpProp = &value;
    return restriction;
}

}  // namespace

std::optional<std::uint64_t> ParseTime(std::string_view text)
{
    const bool isDate = IsOfForm(text, "0000-00-00");
    if (!isDate && !IsOfForm(text, "0000-00-00T00:00:00Z"))
        return std::nullopt;
    const auto number = [&](std::size_t at, std::size_t digits) {
        WORD value = 0;
        for (std::size_t i = at; i < at + digits; ++i)
            value = static_cast<WORD>(value * 10 + (text[i] - '0'));
        return value;
    };
    SYSTEMTIME parts{};
    parts.wYear = number(0, 4);
    parts.wMonth = number(5, 2);
    parts.wDay = number(8, 2);
    if (!isDate) {
        parts.wHour = number(11, 2);
        parts.wMinute = number(14, 2);
        parts.wSecond = number(17, 2);
    }
    FILETIME time{};
    if (!SystemTimeToFileTime(&parts, &time))
        return std::nullopt;
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

HRESULT SinceRestriction::RestrictTable(IDispatch* table)
{
    ComPtr<IItemsCol> items;
    ComPtr<IUnknown> raw;
    ComPtr<IMAPITable> rows;
    HRESULT hr = table ? QueryFor(table, items) : E_POINTER;
    if (SUCCEEDED(hr))
        hr = items->get_RawTable(raw.Put());
    if (SUCCEEDED(hr))
        hr = raw.As(rows);
    if (FAILED(hr))
        return hr;
    SPropValue value{};
    value.Value.ft = {static_cast<DWORD>(time_), static_cast<DWORD>(time_ >> 32)};
    SPropValue sent = value, changed = value;
    sent.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    changed.ulPropTag = PR_LAST_MODIFICATION_TIME;
    SRestriction hasSent{};
    hasSent.rt = RES_EXIST;
    hasSent.res.resExist.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    SRestriction neverSentButChanged[2]{};
    neverSentButChanged[0].rt = RES_NOT;
    neverSentButChanged[0].res.resNot.lpRes = &hasSent;
    neverSentButChanged[1] = NotBefore(PR_LAST_MODIFICATION_TIME, changed);
    SRestriction either[2]{};
    either[0] = NotBefore(PR_CLIENT_SUBMIT_TIME, sent);
    either[1].rt = RES_AND;
    either[1].res.resAnd.cRes = 2;
    either[1].res.resAnd.lpRes = neverSentButChanged;
    SRestriction whole{};
    whole.rt = RES_OR;
    whole.res.resOr.cRes = 2;
    whole.res.resOr.lpRes = either;
    return rows->Restrict(&whole, 0);
}

}  // namespace quorvane::host
