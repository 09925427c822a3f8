// transfer/element_names.h: the storages in a storage, one after the other.
#ifndef QUORVANE_ENGINE_TRANSFER_ELEMENT_NAMES_H_
#define QUORVANE_ENGINE_TRANSFER_ELEMENT_NAMES_H_

#include "platform/com/com_ptr.h"

namespace quorvane {

// The name of an element, as an enumerator gives it.
class ElementEntry {
public:
    ElementEntry() noexcept = default;
    ElementEntry(const ElementEntry&) = delete;
    ElementEntry& operator=(const ElementEntry&) = delete;
    ~ElementEntry() { CoTaskMemFree(stat_.pwcsName); }

    // Fetches the next element. False: there is none, or the enumerator failed.
    bool FetchFrom(IEnumSTATSTG& elements) noexcept
    {
        CoTaskMemFree(stat_.pwcsName);
        stat_ = STATSTG{};
        ULONG fetched = 0;
        return elements.Next(1, &stat_, &fetched) == S_OK && stat_.pwcsName;
    }

    bool IsStorage() const noexcept { return stat_.type == STGTY_STORAGE; }
    const OLECHAR* Name() const noexcept { return stat_.pwcsName; }

private:
    STATSTG stat_{};
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_ELEMENT_NAMES_H_
