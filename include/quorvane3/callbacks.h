// quorvane3/callbacks.h: bases for a C++ host's callbacks. A host overrides virtual functions; the base
// answers the engine's calls by dispatch identifier.
//
// Threading: a callback object made on a thread that called CoInitialize is called on that thread while
// it pumps; one made on any other thread is called on the engine's threads directly and must be ready
// for that. An exception never leaves a callback: it becomes E_FAIL (std::bad_alloc: E_OUTOFMEMORY).
// A callback must not release the last reference to the session or the library: the end of a session waits
// for the callbacks under way.
//
// A handler must outlive every call under way. The end of a session doesn't wait for OnItemReceived; Close of
// the callback object does (HostSession of host_session.h calls it).
#ifndef QUORVANE3_CALLBACKS_H_
#define QUORVANE3_CALLBACKS_H_

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "quorvane3/com.h"
#include "quorvane3/object_model.h"

namespace quorvane {

// What the engine asks of and tells to a host; model/host.h tells each. Every `ignore` comes in false; set to
// true it keeps the engine from acting on the event. Arguments are borrowed for the call. A failure that a
// handler returns counts as a failure of the step in which the engine called it.
class ExtHandler {
public:
    virtual HRESULT OnItemResend(IItem* /*item*/, BSTR /*jobId*/, bool& /*ignore*/) { return S_OK; }
    virtual HRESULT OnFolderReceived(IFolder* /*folder*/, BSTR /*tag*/) { return S_OK; }
    virtual HRESULT OnItemAdded(IItem* /*item*/, bool& /*ignore*/) { return S_OK; }
    virtual HRESULT OnItemChanged(IItem* /*item*/, bool& /*ignore*/) { return S_OK; }
    virtual HRESULT OnItemDeleted(IItem* /*item*/, bool& /*ignore*/) { return S_OK; }
    virtual HRESULT OnItemReceived(IItem* /*item*/, BSTR /*tag*/, bool& /*ignore*/) { return S_OK; }
    virtual HRESULT OnPostprocess(BSTR /*entryId*/, BSTR /*storeId*/) { return S_OK; }

    // Full path of the sharing database.
    virtual HRESULT DatabasePath(Bstr& path) = 0;
    // The text that keeps the settings of several hosts apart.
    virtual HRESULT ProductCode(Bstr& code) = 0;

protected:
    ~ExtHandler() = default;
};

// Decides which rows of a folder a resend offers: restricts the table that the engine hands over.
class RestrictHandler {
public:
    // table: answers IItemsCol, whose RawTable is the IMAPITable.
    virtual HRESULT RestrictTable(IDispatch* table) = 0;

protected:
    ~RestrictHandler() = default;
};

class ProgressHandler {
public:
    virtual HRESULT SetLimits(LONG min, LONG max) = 0;
    virtual HRESULT Progress(LONG count, LONG total) = 0;

protected:
    ~ProgressHandler() = default;
};

namespace detail {

// Counts the calls under way, so that the last of them can be waited for.
class CallGate {
public:
    // False after Close: there are no more calls. Otherwise Leave follows.
    bool Enter() noexcept
    {
        const std::lock_guard lock(mutex_);
        if (closed_)
            return false;
        ++calls_;
        return true;
    }
    void Leave() noexcept
    {
        const std::lock_guard lock(mutex_);
        if (--calls_ == 0)
            left_.notify_all();
    }
    // Lets no more calls in and waits for those under way; not called from within one.
    void Close() noexcept
    {
        std::unique_lock lock(mutex_);
        closed_ = true;
        left_.wait(lock, [this] { return calls_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable left_;
    unsigned calls_ = 0;
    bool closed_ = false;
};

// IDispatch over a fixed list of identifiers: no type information, no names. One that was made on a thread
// without an apartment of its own tells COM that any thread may call it.
template <class Derived, class Callback>
class CallbackObject : public ComObject<Derived, Answers<Callback, IDispatch>, FreeThreaded> {
    using Base = ComObject<Derived, Answers<Callback, IDispatch>, FreeThreaded>;

public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object || !inApartment_ || !IsEqualIID(riid, IID_IMarshal))
            return Base::QueryInterface(riid, object);
        *object = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        if (!count)
            return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                     EXCEPINFO*, UINT*) override
    {
        if (!params)
            return E_INVALIDARG;
        if (!gate_.Enter())
            return RPC_E_DISCONNECTED;
        const HRESULT hr = Answer(id, *params, result);
        gate_.Leave();
        return hr;
    }

    // Ends the use of the handler: calls from now on give RPC_E_DISCONNECTED, and those under way have
    // returned when this does. Any thread, but not within a callback.
    void Close() noexcept { gate_.Close(); }

protected:
    ~CallbackObject() = default;

private:
    HRESULT Answer(DISPID id, const DISPPARAMS& params, VARIANT* result) noexcept
    {
        try {
            return static_cast<Derived*>(this)->Call(id, params, result);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }

    CallGate gate_;
    const bool inApartment_ = IsApartmentThread();
};

// The argument at `position`, counted from the left: the parameters come in reverse.
inline const VARIANT* ArgumentAt(const DISPPARAMS& params, UINT position) noexcept
{
    return position < params.cArgs ? &params.rgvarg[params.cArgs - 1 - position] : nullptr;
}

inline BSTR TextAt(const DISPPARAMS& params, UINT position) noexcept
{
    const VARIANT* const argument = ArgumentAt(params, position);
    return argument && argument->vt == VT_BSTR ? argument->bstrVal : nullptr;
}

inline LONG LongAt(const DISPPARAMS& params, UINT position) noexcept
{
    const VARIANT* const argument = ArgumentAt(params, position);
    return argument && argument->vt == VT_I4 ? argument->lVal : 0;
}

template <class Interface>
ComPtr<Interface> ObjectAt(const DISPPARAMS& params, UINT position) noexcept
{
    ComPtr<Interface> result;
    const VARIANT* const argument = ArgumentAt(params, position);
    if (argument && argument->vt == VT_DISPATCH && argument->pdispVal)
        argument->pdispVal->QueryInterface(Iid<Interface>(), result.PutVoid());
    return result;
}

}  // namespace detail

// The object to hand to ILibrary::Logon. `handler` outlives the session and every call under way, or this
// object's Close.
class ExtCallback final : public detail::CallbackObject<ExtCallback, IQuorvaneExt> {
public:
    explicit ExtCallback(ExtHandler& handler) noexcept : handler_(handler) {}

    HRESULT Call(DISPID id, const DISPPARAMS& params, VARIANT* result);

private:
    HRESULT CallItemEvent(DISPID id, const DISPPARAMS& params);
    static HRESULT GiveText(HRESULT hr, Bstr& text, VARIANT* result) noexcept;

    ExtHandler& handler_;
};

// The object to hand to IFolder::ResendEx. `handler` outlives every call, or goes with this object.
class RestrictCallback final : public detail::CallbackObject<RestrictCallback, IQuorvaneRestrict> {
public:
    explicit RestrictCallback(RestrictHandler& handler) noexcept : handler_(handler) {}
    template <class Handler>
    explicit RestrictCallback(std::shared_ptr<Handler> handler) noexcept
        : handler_(*handler), kept_(std::move(handler))
    {}

    HRESULT Call(DISPID id, const DISPPARAMS& params, VARIANT*)
    {
        if (id != kRestrictTable)
            return DISP_E_MEMBERNOTFOUND;
        return handler_.RestrictTable(detail::ObjectAt<IDispatch>(params, 0).Get());
    }

private:
    RestrictHandler& handler_;
    const std::shared_ptr<void> kept_;
};

// The object to hand to IFolder::Resend or ResendEx. `handler` outlives every call, or goes with this object:
// nothing but the last release tells that a resend has ended, or never began.
class ProgressCallback final : public detail::CallbackObject<ProgressCallback, IQuorvaneProgress> {
public:
    explicit ProgressCallback(ProgressHandler& handler) noexcept : handler_(handler) {}
    template <class Handler>
    explicit ProgressCallback(std::shared_ptr<Handler> handler) noexcept
        : handler_(*handler), kept_(std::move(handler))
    {}

    HRESULT Call(DISPID id, const DISPPARAMS& params, VARIANT*)
    {
        const LONG first = detail::LongAt(params, 0);
        const LONG second = detail::LongAt(params, 1);
        if (id == kSetLimits)
            return handler_.SetLimits(first, second);
        return id == kProgress ? handler_.Progress(first, second) : DISP_E_MEMBERNOTFOUND;
    }

private:
    ProgressHandler& handler_;
    const std::shared_ptr<void> kept_;
};

inline HRESULT ExtCallback::GiveText(HRESULT hr, Bstr& text, VARIANT* result) noexcept
{
    if (FAILED(hr) || !result)
        return hr;
    result->vt = VT_BSTR;
    result->bstrVal = text.Detach();
    return hr;
}

inline HRESULT ExtCallback::CallItemEvent(DISPID id, const DISPPARAMS& params)
{
    const bool hasText = id == kOnItemResend || id == kOnItemReceived;
    const ComPtr<IItem> item = detail::ObjectAt<IItem>(params, 0);
    const VARIANT* const place = detail::ArgumentAt(params, hasText ? 2 : 1);
    if (!item || !place || place->vt != (VT_BYREF | VT_BOOL) || !place->pboolVal)
        return DISP_E_TYPEMISMATCH;
    BSTR const text = hasText ? detail::TextAt(params, 1) : nullptr;
    bool ignore = *place->pboolVal != 0;
    HRESULT hr = S_OK;
    switch (id) {
        case kOnItemResend:
            hr = handler_.OnItemResend(item.Get(), text, ignore);
            break;
        case kOnItemReceived:
            hr = handler_.OnItemReceived(item.Get(), text, ignore);
            break;
        case kOnItemAdded:
            hr = handler_.OnItemAdded(item.Get(), ignore);
            break;
        case kOnItemChanged:
            hr = handler_.OnItemChanged(item.Get(), ignore);
            break;
        default:
            hr = handler_.OnItemDeleted(item.Get(), ignore);
            break;
    }
    *place->pboolVal = ignore ? VARIANT_TRUE : VARIANT_FALSE;
    return hr;
}

inline HRESULT ExtCallback::Call(DISPID id, const DISPPARAMS& params, VARIANT* result)
{
    Bstr text;
    switch (id) {
        case kOnItemResend:
        case kOnItemAdded:
        case kOnItemChanged:
        case kOnItemDeleted:
        case kOnItemReceived:
            return CallItemEvent(id, params);
        case kOnFolderReceived:
            return handler_.OnFolderReceived(detail::ObjectAt<IFolder>(params, 0).Get(),
                                             detail::TextAt(params, 1));
        case kOnPostprocess:
            return handler_.OnPostprocess(detail::TextAt(params, 0), detail::TextAt(params, 1));
        case kDatabasePath: {
            const HRESULT hr = handler_.DatabasePath(text);
            return GiveText(hr, text, result);
        }
        case kProductCode: {
            const HRESULT hr = handler_.ProductCode(text);
            return GiveText(hr, text, result);
        }
        default:
            return DISP_E_MEMBERNOTFOUND;
    }
}

}  // namespace quorvane

#endif  // QUORVANE3_CALLBACKS_H_
