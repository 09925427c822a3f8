#include "platform/com/com_object.h"

namespace quorvane {

FreeThreaded::~FreeThreaded()
{
    if (IUnknown* const marshaler = marshaler_.load(std::memory_order_acquire))
        marshaler->Release();
}

IMarshal* FreeThreaded::Marshaler(IUnknown* outer) noexcept
{
    IUnknown* marshaler = marshaler_.load(std::memory_order_acquire);
    if (!marshaler) {
        ComPtr<IUnknown> made;
        if (FAILED(CoCreateFreeThreadedMarshaler(outer, made.Put())))
            return nullptr;
        // Two threads may have asked at the same time: the first one's stays.
        if (marshaler_.compare_exchange_strong(marshaler, made.Get(), std::memory_order_acq_rel))
            marshaler = made.Detach();
    }
    ComPtr<IMarshal> marshal;
    return SUCCEEDED(QueryFor(marshaler, marshal)) ? marshal.Get() : nullptr;
}

}  // namespace quorvane
