// platform/com/apartment_core.h: the inside of single-threaded apartments. Off Windows.
#ifndef QUORVANE_PLATFORM_COM_APARTMENT_CORE_H_
#define QUORVANE_PLATFORM_COM_APARTMENT_CORE_H_

#include <deque>
#include <memory>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "platform/com/com_ptr.h"
#include "platform/com/mutex.h"
#include "platform/com/wakeup.h"

namespace quorvane {

// One thread's queue of calls, and the objects of that thread which other threads may call.
class Apartment {
public:
    using ObjectId = std::uint64_t;

    explicit Apartment(std::shared_ptr<Wakeup> owner) noexcept : owner_(std::move(owner)) {}
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    // The calling thread's apartment; null for a free thread.
    static std::shared_ptr<Apartment> OfThisThread() noexcept;
    bool IsThisThread() const noexcept { return OfThisThread().get() == this; }

    // Owner: keeps a reference until Drop or End. E_OUTOFMEMORY; RPC_E_DISCONNECTED after End.
    [[nodiscard]] HRESULT Hold(IDispatch* object, ObjectId& id) noexcept;
    // Any thread: has the owner release an object, at the latest when the apartment ends.
    void Drop(ObjectId id) noexcept;
    // Owner: empty when the object was dropped.
    ComPtr<IDispatch> Find(ObjectId id) noexcept;

    // Any thread: runs `function`, which gives an HRESULT and doesn't throw, on the owner and waits for it.
    // The calling thread's own queue stays alive meanwhile. Error info that the function set comes along.
    // RPC_E_DISCONNECTED: the apartment has ended, and the function didn't run. E_OUTOFMEMORY.
    template <class Function>
    [[nodiscard]] HRESULT Call(Function&& function) noexcept
    {
        PendingCall call;
        call.run = [](void* context) {
            return (*static_cast<std::remove_reference_t<Function>*>(context))();
        };
        call.context = &function;
        return Perform(call);
    }

    // Owner: runs the calls that wait now, and releases what was dropped; true if there was anything to do.
    // True also means that signals may have been spent.
    bool RunQueued() noexcept;
    // Owner: refuses all calls from now on, those that wait included, and releases every object.
    void End() noexcept;

private:
    // On the caller's stack for as long as the caller waits.
    struct PendingCall {
        HRESULT (*run)(void* context) = nullptr;
        void* context = nullptr;
        std::shared_ptr<Wakeup> caller;
        bool finished = false;  // under the apartment's mutex, as what follows
        HRESULT result = S_OK;
        ComPtr<IErrorInfo> errorInfo;
    };

    HRESULT Perform(PendingCall& call) noexcept;
    HRESULT Enqueue(PendingCall& call) noexcept;
    bool IsFinished(const PendingCall& call) noexcept;
    void Finish(PendingCall& call, HRESULT result) noexcept;
    bool ReleaseDropped() noexcept;
    void RunOne(PendingCall& call) noexcept;

    const std::shared_ptr<Wakeup> owner_;
    Mutex mutex_;
    bool ended_ QV_GUARDED_BY(mutex_) = false;
    std::deque<PendingCall*> queue_ QV_GUARDED_BY(mutex_);
    ObjectId nextId_ QV_GUARDED_BY(mutex_) = 1;
    std::unordered_map<ObjectId, ComPtr<IDispatch>> objects_ QV_GUARDED_BY(mutex_);
    std::vector<ObjectId> dropped_ QV_GUARDED_BY(mutex_);
};

// One interface pointer on its way between threads: kept by the global interface table, or by a stream. Made
// on one thread; Open and destruction on any.
class InterfaceParcel {
public:
    // Of an object's interface `riid`: E_NOINTERFACE, E_OUTOFMEMORY.
    [[nodiscard]] static HRESULT Make(IUnknown* object, REFIID riid, InterfaceParcel& parcel) noexcept;
    // What the calling thread may use: the object itself, or a proxy.
    [[nodiscard]] HRESULT Open(REFIID riid, void** object) const noexcept;

private:
    ComPtr<IUnknown> direct_;
    std::shared_ptr<const class BoundObject> bound_;
};

// An object that its apartment holds for callers elsewhere, for as long as one of them wants it.
class BoundObject {
public:
    // On the apartment's thread. E_OUTOFMEMORY, RPC_E_DISCONNECTED.
    [[nodiscard]] static HRESULT Make(std::shared_ptr<Apartment> apartment, IDispatch* object,
                                      std::shared_ptr<const BoundObject>& bound) noexcept;

    explicit BoundObject(std::shared_ptr<Apartment> apartment) noexcept : apartment_(std::move(apartment)) {}
    BoundObject(const BoundObject&) = delete;
    BoundObject& operator=(const BoundObject&) = delete;
    ~BoundObject() { apartment_->Drop(id_); }

    const std::shared_ptr<Apartment>& Home() const noexcept { return apartment_; }

    // Runs `function(IDispatch&)` on the apartment's thread. CO_E_OBJNOTCONNECTED: the object is gone.
    template <class Function>
    [[nodiscard]] HRESULT Call(Function&& function) const noexcept
    {
        return apartment_->Call([this, &function]() noexcept -> HRESULT {
            const ComPtr<IDispatch> object = apartment_->Find(id_);
            return object ? function(*object) : CO_E_OBJNOTCONNECTED;
        });
    }

private:
    const std::shared_ptr<Apartment> apartment_;
    Apartment::ObjectId id_ = 0;
};

// A proxy for a bound object, as IUnknown. Null when memory is short.
ComPtr<IUnknown> MakeProxy(std::shared_ptr<const BoundObject> object) noexcept;
// Whether an object is one of these proxies, which any thread may call.
bool IsProxy(IUnknown* object) noexcept;

// Whether DeclareDispatchInterface named the interface.
bool IsDispatchInterface(REFIID riid) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_APARTMENT_CORE_H_
