#include "platform/com/apartment_core.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/com/apartment.h"
#include "platform/com/error_text.h"

namespace quorvane {

namespace {

// What CoInitialize made of a thread. An apartment ends with its thread at the latest.
struct ThreadModel {
    std::shared_ptr<Apartment> apartment;
    ULONG initialised = 0;

    ThreadModel() noexcept = default;
    ThreadModel(const ThreadModel&) = delete;
    ThreadModel& operator=(const ThreadModel&) = delete;
    ~ThreadModel() { EndApartment(); }

    void EndApartment() noexcept
    {
        // Still the thread's apartment while it ends, for what its objects do when they go.
        if (apartment)
            apartment->End();
        apartment.reset();
    }
};

ThreadModel& ModelOfThisThread() noexcept
{
    thread_local ThreadModel model;
    return model;
}

bool IsFreeThreaded(IUnknown* object, REFIID riid) noexcept
{
    ComPtr<IMarshal> marshal;
    CLSID clsid{};
    return SUCCEEDED(QueryFor(object, marshal)) &&
           SUCCEEDED(
               marshal->GetUnmarshalClass(riid, object, MSHCTX_INPROC, nullptr, MSHLFLAGS_NORMAL, &clsid)) &&
           IsEqualCLSID(clsid, CLSID_InProcFreeMarshaler);
}

}  // namespace

std::shared_ptr<Apartment> Apartment::OfThisThread() noexcept
{
    return ModelOfThisThread().apartment;
}

HRESULT Apartment::Hold(IDispatch* object, ObjectId& id) noexcept
{
    try {
        const MutexLock lock(mutex_);
        if (ended_)
            return RPC_E_DISCONNECTED;
        objects_.emplace(nextId_, object);
        id = nextId_++;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void Apartment::Drop(ObjectId id) noexcept
{
    try {
        const MutexLock lock(mutex_);
        if (ended_ || id == 0)
            return;
        dropped_.push_back(id);
    } catch (const std::bad_alloc&) {
        // The object then stays until the apartment ends.
        return;
    }
    owner_->Signal();
}

ComPtr<IDispatch> Apartment::Find(ObjectId id) noexcept
{
    const MutexLock lock(mutex_);
    const auto found = objects_.find(id);
    return found == objects_.end() ? nullptr : found->second;
}

HRESULT Apartment::Enqueue(PendingCall& call) noexcept
{
    try {
        call.caller = Wakeup::OfThisThread();
        const MutexLock lock(mutex_);
        if (ended_)
            return RPC_E_DISCONNECTED;
        queue_.push_back(&call);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    owner_->Signal();
    return S_OK;
}

bool Apartment::IsFinished(const PendingCall& call) noexcept
{
    const MutexLock lock(mutex_);
    return call.finished;
}

HRESULT Apartment::Perform(PendingCall& call) noexcept
{
    if (IsThisThread())
        return call.run(call.context);
    const HRESULT hr = Enqueue(call);
    if (FAILED(hr))
        return hr;
    const Wakeup::Clock::time_point forever = Wakeup::Clock::time_point::max();
    while (!IsFinished(call)) {
        if (!PumpApartmentCalls())
            call.caller->SleepUntil(forever);
    }
    if (call.errorInfo)
        SetErrorInfo(0, call.errorInfo.Get());
    return call.result;
}

// The call is gone as soon as its caller sees it finished.
void Apartment::Finish(PendingCall& call, HRESULT result) noexcept
{
    const std::shared_ptr<Wakeup> caller = call.caller;
    {
        const MutexLock lock(mutex_);
        call.result = result;
        call.finished = true;
    }
    caller->Signal();
}

void Apartment::RunOne(PendingCall& call) noexcept
{
    ClearErrorInfo();
    const HRESULT result = call.run(call.context);
    if (FAILED(result))
        GetErrorInfo(0, call.errorInfo.Put());
    Finish(call, result);
}

bool Apartment::ReleaseDropped() noexcept
{
    std::vector<ObjectId> dropped;
    {
        const MutexLock lock(mutex_);
        dropped.swap(dropped_);
    }
    for (const ObjectId id : dropped) {
        // Released outside of the lock: the object may do anything when it goes.
        ComPtr<IDispatch> object;
        const MutexLock lock(mutex_);
        const auto found = objects_.find(id);
        if (found == objects_.end())
            continue;
        object = std::move(found->second);
        objects_.erase(found);
    }
    return !dropped.empty();
}

bool Apartment::RunQueued() noexcept
{
    const bool released = ReleaseDropped();
    size_t waiting = 0;
    {
        const MutexLock lock(mutex_);
        waiting = queue_.size();
    }
    size_t run = 0;
    // A call may pump in turn and run others of those.
    for (; run < waiting; ++run) {
        PendingCall* call = nullptr;
        {
            const MutexLock lock(mutex_);
            if (queue_.empty())
                break;
            call = queue_.front();
            queue_.pop_front();
        }
        RunOne(*call);
    }
    return released || run > 0;
}

void Apartment::End() noexcept
{
    std::deque<PendingCall*> refused;
    std::unordered_map<ObjectId, ComPtr<IDispatch>> released;
    {
        const MutexLock lock(mutex_);
        ended_ = true;
        refused.swap(queue_);
        released.swap(objects_);
        dropped_.clear();
    }
    for (PendingCall* const call : refused)
        Finish(*call, RPC_E_DISCONNECTED);
}

HRESULT BoundObject::Make(std::shared_ptr<Apartment> apartment, IDispatch* object,
                          std::shared_ptr<const BoundObject>& bound) noexcept
{
    try {
        const auto made = std::make_shared<BoundObject>(std::move(apartment));
        const HRESULT hr = made->apartment_->Hold(object, made->id_);
        if (SUCCEEDED(hr))
            bound = made;
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT InterfaceParcel::Make(IUnknown* object, REFIID riid, InterfaceParcel& parcel) noexcept
{
    ComPtr<IUnknown> asked;
    HRESULT hr = object->QueryInterface(riid, asked.PutVoid());
    if (FAILED(hr))
        return hr;
    std::shared_ptr<Apartment> apartment = Apartment::OfThisThread();
    ComPtr<IDispatch> automation;
    if (!apartment || IsProxy(object) || IsFreeThreaded(object, riid) ||
        FAILED(object->QueryInterface(IID_IDispatch, automation.PutVoid()))) {
        parcel.direct_ = std::move(asked);
        return S_OK;
    }
    return BoundObject::Make(std::move(apartment), automation.Get(), parcel.bound_);
}

HRESULT InterfaceParcel::Open(REFIID riid, void** object) const noexcept
{
    if (direct_)
        return direct_->QueryInterface(riid, object);
    if (!bound_)
        return E_INVALIDARG;
    if (bound_->Home()->IsThisThread())
        return bound_->Call([&](IDispatch& held) { return held.QueryInterface(riid, object); });
    const ComPtr<IUnknown> proxy = MakeProxy(bound_);
    return proxy ? proxy->QueryInterface(riid, object) : E_OUTOFMEMORY;
}

bool IsApartmentThread() noexcept
{
    return ModelOfThisThread().apartment != nullptr;
}

bool PumpApartmentCalls() noexcept
{
    const std::shared_ptr<Apartment> apartment = Apartment::OfThisThread();
    return apartment && apartment->RunQueued();
}

}  // namespace quorvane

HRESULT CoInitialize(void* reserved)
{
    return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED);
}

HRESULT CoInitializeEx(void* reserved, DWORD flags)
{
    if (reserved)
        return E_INVALIDARG;
    auto& model = quorvane::ModelOfThisThread();
    const bool wantsApartment = (flags & COINIT_APARTMENTTHREADED) != 0;
    if (model.initialised > 0) {
        if (wantsApartment != (model.apartment != nullptr))
            return RPC_E_CHANGED_MODE;
        ++model.initialised;
        return S_FALSE;
    }
    try {
        if (wantsApartment)
            model.apartment = std::make_shared<quorvane::Apartment>(quorvane::Wakeup::OfThisThread());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    model.initialised = 1;
    return S_OK;
}

void CoUninitialize()
{
    auto& model = quorvane::ModelOfThisThread();
    if (model.initialised == 0 || --model.initialised > 0)
        return;
    model.EndApartment();
}
