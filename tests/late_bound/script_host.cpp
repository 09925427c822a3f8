#include "tests/late_bound/script_host.h"

#include <algorithm>

#include "tests/late_bound/automation.h"
#include "tests/late_bound/page.h"
#include "tests/support/test_directory.h"

#ifdef QUORVANE3_OBJECT_MODEL_H_
#error "this host has no types of the engine"
#endif

namespace quorvane::test {

namespace {

const PageInterface& Callback()
{
    return Page::Instance().Interface("IQuorvaneExt");
}

// Counted from the left; the parameters come in reverse.
const VARIANT& ArgumentAt(const DISPPARAMS& params, UINT position)
{
    if (position >= params.cArgs)
        throw std::runtime_error("too few arguments");
    return params.rgvarg[params.cArgs - 1 - position];
}

Automation ObjectAt(const DISPPARAMS& params, UINT position)
{
    const VARIANT& argument = ArgumentAt(params, position);
    if (argument.vt != VT_DISPATCH || !argument.pdispVal)
        throw std::runtime_error("no object");
    return Automation(ComPtr<IDispatch>(argument.pdispVal));
}

std::string TextAt(const DISPPARAMS& params, UINT position)
{
    const VARIANT& argument = ArgumentAt(params, position);
    if (argument.vt != VT_BSTR)
        throw std::runtime_error("no text");
    return ToUtf8(ViewOf(argument.bstrVal));
}

VARIANT_BOOL& FlagAt(const DISPPARAMS& params, UINT position)
{
    const VARIANT& argument = ArgumentAt(params, position);
    if (argument.vt != (VT_BYREF | VT_BOOL) || !argument.pboolVal || *argument.pboolVal != VARIANT_FALSE)
        throw std::runtime_error("no flag that starts false");
    return *argument.pboolVal;
}

bool IsLocalChange(const std::string& what)
{
    return what == "onItemAdded" || what == "onItemChanged" || what == "onItemDeleted";
}

}  // namespace

void ScriptHost::SendTo(const std::string& recipients)
{
    const std::lock_guard lock(mutex_);
    recipients_ = recipients;
}

bool ScriptHost::Heard(const std::string& what, size_t count, bool pump)
{
    if (pump)
        return Eventually([&] {
            PumpApartmentCalls();
            const std::lock_guard lock(mutex_);
            return CountOf(what) >= count;
        });
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kDeadline, [&] { return CountOf(what) >= count; });
}

size_t ScriptHost::CountOf(const std::string& what) const
{
    return static_cast<size_t>(std::ranges::count(events_, what, &ScriptEvent::what));
}

std::vector<ScriptEvent> ScriptHost::Events(const std::string& what) const
{
    const std::lock_guard lock(mutex_);
    std::vector<ScriptEvent> found;
    std::ranges::copy_if(events_, std::back_inserter(found),
                         [&](const ScriptEvent& event) { return event.what == what; });
    return found;
}

std::string ScriptHost::Complaint() const
{
    const std::lock_guard lock(mutex_);
    return complaint_;
}

HRESULT ScriptHost::QueryInterface(REFIID riid, void** object)
{
    if (!IsEqualIID(riid, Callback().id))
        return ComObject::QueryInterface(riid, object);
    AddRef();
    *object = static_cast<IDispatch*>(this);
    return S_OK;
}

HRESULT ScriptHost::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

HRESULT ScriptHost::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                           EXCEPINFO*, UINT*)
{
    const auto& operations = Callback().operations;
    const auto found = std::ranges::find(operations, id, &PageOperation::id);
    if (found == operations.end())
        return DISP_E_MEMBERNOTFOUND;
    try {
        if (flags != (found->kind == "get" ? DISPATCH_PROPERTYGET : DISPATCH_METHOD))
            throw std::runtime_error("called in another way");
        Handle(found->name, *params, result);
        return S_OK;
    } catch (const std::exception& error) {
        const std::lock_guard lock(mutex_);
        complaint_ += found->name + ": " + error.what() + "\n";
        return E_FAIL;
    }
}

void ScriptHost::Handle(const std::string& what, const DISPPARAMS& params, VARIANT* result)
{
    if (what == "DatabasePath") {
        *result = TextValue(database_.string()).Detach();
        return;
    }
    if (what == "ProductCode") {
        *result = TextValue("Tests").Detach();
        return;
    }
    ScriptEvent event{what, {}, {}, 0, {}, std::this_thread::get_id()};
    if (what == "onPostprocess") {
        event.entryId = TextAt(params, 0);
        event.text = TextAt(params, 1);
    } else if (what == "onFolderReceived") {
        event.id = TextOf(ObjectAt(params, 0).Get("ID"));
        event.text = TextAt(params, 1);
    } else {
        HandleItem(event, params);
    }
    Note(std::move(event));
}

void ScriptHost::HandleItem(ScriptEvent& event, const DISPPARAMS& params)
{
    const Automation item = ObjectAt(params, 0);
    event.id = TextOf(item.Get("ID"));
    event.entryId = TextOf(item.Get("EntryID"));
    event.action = item.Get("Action").Raw().lVal;
    if (params.cArgs == 3)
        event.text = TextAt(params, 1);
    if (hook_)
        hook_(event.what, item);
    VARIANT_BOOL& ignore = FlagAt(params, params.cArgs - 1);
    std::string recipients;
    {
        const std::lock_guard lock(mutex_);
        recipients = recipients_;
    }
    if (recipients.empty() || !IsLocalChange(event.what))
        return;
    if (event.what != "onItemDeleted")
        item.Get("Raw");
    item.Call("Send", Pack(TextValue(recipients)));
    ignore = VARIANT_TRUE;
}

void ScriptHost::Note(ScriptEvent event)
{
    {
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
    }
    changed_.notify_all();
}

}  // namespace quorvane::test
