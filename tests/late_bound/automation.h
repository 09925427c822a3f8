// tests/late_bound/automation.h: an object as a script language handles it, by names alone.
#ifndef QUORVANE_TESTS_LATE_BOUND_AUTOMATION_H_
#define QUORVANE_TESTS_LATE_BOUND_AUTOMATION_H_

#include <string>
#include <utility>
#include <vector>

#include "quorvane3/com.h"

namespace quorvane::test {

using Arguments = std::vector<Variant>;
using NamedArguments = std::vector<std::pair<std::string, Variant>>;

// Makes the list of a call's arguments: Pack(Variant::Long(1), Variant::Text(...)).
template <class... Values>
Arguments Pack(Values&&... values)
{
    Arguments arguments;
    (arguments.push_back(std::move(values)), ...);
    return arguments;
}
template <class... Values>
NamedArguments Name(std::pair<std::string, Values>&&... values)
{
    NamedArguments arguments;
    (arguments.push_back(std::move(values)), ...);
    return arguments;
}
inline std::pair<std::string, Variant> As(std::string name, Variant value)
{
    return {std::move(name), std::move(value)};
}

// Of UTF-8 text.
Variant TextValue(const std::string& text);
// Of a VARIANT that holds a text; "?" for any other.
std::string TextOf(const Variant& value);

// How a call ended.
struct Outcome {
    HRESULT hr = S_OK;
    Variant result;
    UINT argumentError = 77;  // left alone where there was no faulty argument
    // Of the exception.
    SCODE scode = S_OK;
    std::string source;
    std::string description;
};

// Names are resolved by GetIDsOfNames, calls go through Invoke. Get, Put and Call throw std::runtime_error
// with the operation's name, its code and its text; the Try forms tell them instead.
class Automation {
public:
    Automation() noexcept = default;
    explicit Automation(ComPtr<IDispatch> object) noexcept : object_(std::move(object)) {}
    // Of a VARIANT that holds an object. Throws std::runtime_error.
    explicit Automation(const Variant& value);

    IDispatch* Get() const noexcept { return object_.Get(); }

    Variant Get(const std::string& name, Arguments arguments = {}) const;
    void Put(const std::string& name, Variant value) const;
    Variant Call(const std::string& name, Arguments arguments = {}, NamedArguments named = {}) const;

    Outcome TryGet(const std::string& name, Arguments arguments = {}) const;
    Outcome TryPut(const std::string& name, Variant value, WORD flags = DISPATCH_PROPERTYPUT) const;
    Outcome TryCall(const std::string& name, Arguments arguments = {}, NamedArguments named = {}) const;

    // The first name is an operation's, the others its arguments'. DISPID_UNKNOWN for one that isn't known.
    HRESULT FindIds(const std::vector<std::string>& names, std::vector<DISPID>& ids) const;
    // Positional arguments first to last, then those given by identifier.
    Outcome Invoke(DISPID id, WORD flags, Arguments arguments,
                   std::vector<std::pair<DISPID, Variant>> named = {}) const;

private:
    Outcome Try(const std::string& name, WORD flags, Arguments arguments, NamedArguments named) const;

    ComPtr<IDispatch> object_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_AUTOMATION_H_
