// tests/late_bound/script_host.h: a host's callbacks with nothing but IDispatch, as a script language has
// them.
#ifndef QUORVANE_TESTS_LATE_BOUND_SCRIPT_HOST_H_
#define QUORVANE_TESTS_LATE_BOUND_SCRIPT_HOST_H_

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quorvane3/com.h"
#include "tests/late_bound/automation.h"

namespace quorvane::test {

// One call of the engine, with what its item or folder said of itself.
struct ScriptEvent {
    std::string what;  // the operation's name
    std::string id;
    std::string entryId;  // empty for a folder
    long action = 0;
    std::string text;  // the call's text argument, if it has one
    std::thread::id thread;
};

// Answers IUnknown, IDispatch and, by its identifier, the callback interface, which has no slots of its own.
// The engine calls on any thread.
class ScriptHost final : public ComObject<ScriptHost, IDispatch> {
public:
    explicit ScriptHost(std::filesystem::path database) : database_(std::move(database)) {}

    // From now on the host sends changed items itself, to these recipients, and tells the engine to ignore
    // them; the event is noted once the item is in its package. Empty: the engine sends, as it does at first.
    void SendTo(const std::string& recipients);

    // Called with each item that the engine asks about, before the call is noted. Set while no call comes.
    using ItemHook = std::function<void(const std::string& what, const Automation& item)>;
    void WhenAsked(ItemHook hook) { hook_ = std::move(hook); }

    // Waits until so many calls of an operation have come; false when the deadline passes first. With
    // `pump`, calls into this thread's apartment are answered meanwhile.
    bool Heard(const std::string& what, size_t count = 1, bool pump = false);
    std::vector<ScriptEvent> Events(const std::string& what) const;
    // What a handler complained about: empty when all went well.
    std::string Complaint() const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

private:
    void Handle(const std::string& what, const DISPPARAMS& params, VARIANT* result);
    void HandleItem(ScriptEvent& event, const DISPPARAMS& params);
    void Note(ScriptEvent event);
    size_t CountOf(const std::string& what) const;

    const std::filesystem::path database_;
    ItemHook hook_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<ScriptEvent> events_;
    std::string recipients_;
    std::string complaint_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_SCRIPT_HOST_H_
