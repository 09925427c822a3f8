// platform/com/marshaled_interface.h: MarshaledInterface, one interface on its way to another thread.
#ifndef QUORVANE_PLATFORM_COM_MARSHALED_INTERFACE_H_
#define QUORVANE_PLATFORM_COM_MARSHALED_INTERFACE_H_

#include <utility>

#include "platform/com/apartment.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// An interface that one thread puts in and another takes out, once. Whoever takes it out has called
// CoInitialize or CoInitializeEx. What nobody took goes with this object, on any thread.
class MarshaledInterface {
public:
    MarshaledInterface() noexcept = default;
    MarshaledInterface(const MarshaledInterface&) = delete;
    MarshaledInterface& operator=(const MarshaledInterface&) = delete;
    ~MarshaledInterface()
    {
        if (!stream_)
            return;
        const FreeThreadScope thread;  // of a thread that is nothing yet
        CoReleaseMarshalData(stream_);
        stream_->Release();
    }

    // What CoMarshalInterThreadInterfaceInStream answers; empty after a failure. Called once.
    template <class Interface>
    HRESULT Put(IUnknown* object) noexcept
    {
        return CoMarshalInterThreadInterfaceInStream(Iid<Interface>(), object, &stream_);
    }

    bool IsEmpty() const noexcept { return !stream_; }

    // What CoGetInterfaceAndReleaseStream answers: E_INVALIDARG when this is empty, as it is afterwards.
    template <class Interface>
    HRESULT Take(ComPtr<Interface>& object) noexcept
    {
        return CoGetInterfaceAndReleaseStream(std::exchange(stream_, nullptr), Iid<Interface>(),
                                              object.PutVoid());
    }

private:
    IStream* stream_ = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_MARSHALED_INTERFACE_H_
