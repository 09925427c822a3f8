#include "tests/late_bound/automation.h"

#include <cstdio>
#include <stdexcept>

namespace quorvane::test {

namespace {

std::string TakeText(BSTR text)
{
    return ToUtf8(Bstr::Attach(text).View());
}

Variant MustSucceed(const std::string& name, Outcome outcome)
{
    if (SUCCEEDED(outcome.hr))
        return std::move(outcome.result);
    char codes[64];
    std::snprintf(codes, sizeof codes, ": 0x%08X, 0x%08X ", static_cast<unsigned>(outcome.hr),
                  static_cast<unsigned>(outcome.scode));
    throw std::runtime_error(name + codes + outcome.description);
}

}  // namespace

Variant TextValue(const std::string& text)
{
    return Variant::Text(FromUtf8(text));
}

std::string TextOf(const Variant& value)
{
    return value.Is(VT_BSTR) ? ToUtf8(ViewOf(value.Raw().bstrVal)) : "?";
}

Automation::Automation(const Variant& value)
{
    const bool isObject = value.Is(VT_DISPATCH) || value.Is(VT_UNKNOWN);
    if (!isObject || !value.Raw().punkVal ||
        FAILED(value.Raw().punkVal->QueryInterface(IID_IDispatch, object_.PutVoid())))
        throw std::runtime_error("no automation object");
}

HRESULT Automation::FindIds(const std::vector<std::string>& names, std::vector<DISPID>& ids) const
{
    std::vector<OleString> texts;
    for (const std::string& name : names)
        texts.push_back(FromUtf8(name));
    std::vector<LPOLESTR> pointers;
    for (OleString& text : texts)
        pointers.push_back(text.data());
    ids.assign(names.size(), 0);
    return object_->GetIDsOfNames(IID_NULL, pointers.data(), static_cast<UINT>(names.size()),
                                  LOCALE_USER_DEFAULT, ids.data());
}

Outcome Automation::Invoke(DISPID id, WORD flags, Arguments arguments,
                           std::vector<std::pair<DISPID, Variant>> named) const
{
    std::vector<VARIANT> raw;
    std::vector<DISPID> names;
    for (const auto& [name, value] : named) {
        names.push_back(name);
        raw.push_back(value.Raw());
    }
    for (auto each = arguments.rbegin(); each != arguments.rend(); ++each)
        raw.push_back(each->Raw());
    DISPPARAMS params{raw.data(), names.data(), static_cast<UINT>(raw.size()),
                      static_cast<UINT>(names.size())};
    EXCEPINFO exception{};
    Outcome outcome;
    outcome.hr = object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, outcome.result.Put(),
                                 &exception, &outcome.argumentError);
    outcome.scode = exception.scode;
    outcome.source = TakeText(exception.bstrSource);
    outcome.description = TakeText(exception.bstrDescription);
    TakeText(exception.bstrHelpFile);
    return outcome;
}

Outcome Automation::Try(const std::string& name, WORD flags, Arguments arguments, NamedArguments named) const
{
    std::vector<std::string> names{name};
    for (const auto& [argument, value] : named)
        names.push_back(argument);
    std::vector<DISPID> ids;
    Outcome outcome;
    outcome.hr = FindIds(names, ids);
    if (FAILED(outcome.hr))
        return outcome;
    std::vector<std::pair<DISPID, Variant>> resolved;
    for (size_t i = 0; i < named.size(); ++i)
        resolved.emplace_back(ids[i + 1], std::move(named[i].second));
    return Invoke(ids[0], flags, std::move(arguments), std::move(resolved));
}

Outcome Automation::TryGet(const std::string& name, Arguments arguments) const
{
    return Try(name, DISPATCH_PROPERTYGET, std::move(arguments), {});
}

Outcome Automation::TryPut(const std::string& name, Variant value, WORD flags) const
{
    std::vector<DISPID> ids;
    Outcome outcome;
    outcome.hr = FindIds({name}, ids);
    if (FAILED(outcome.hr))
        return outcome;
    std::vector<std::pair<DISPID, Variant>> named;
    named.emplace_back(DISPID_PROPERTYPUT, std::move(value));
    return Invoke(ids[0], flags, {}, std::move(named));
}

Outcome Automation::TryCall(const std::string& name, Arguments arguments, NamedArguments named) const
{
    return Try(name, DISPATCH_METHOD, std::move(arguments), std::move(named));
}

Variant Automation::Get(const std::string& name, Arguments arguments) const
{
    return MustSucceed(name, TryGet(name, std::move(arguments)));
}

void Automation::Put(const std::string& name, Variant value) const
{
    MustSucceed(name, TryPut(name, std::move(value)));
}

Variant Automation::Call(const std::string& name, Arguments arguments, NamedArguments named) const
{
    return MustSucceed(name, TryCall(name, std::move(arguments), std::move(named)));
}

}  // namespace quorvane::test
