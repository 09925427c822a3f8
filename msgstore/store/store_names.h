// msgstore/store/store_names.h: the names of a store's properties, kept in its file.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_NAMES_H_
#define QUORVANE_MSGSTORE_STORE_STORE_NAMES_H_

#include <map>

#include "msgstore/props/property_names.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// Entries that were seen once are remembered: they never change. Any thread may call.
class StoreNames final : public PropertyNames {
public:
    // `core` owns this object.
    explicit StoreNames(StoreCore& core) noexcept : core_(core) {}

    [[nodiscard]] HRESULT NameOf(ULONG id, PropertyName& name) noexcept override;
    [[nodiscard]] HRESULT IdOf(const PropertyName& name, bool create, ULONG& id) noexcept override;
    [[nodiscard]] HRESULT All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept override;
    GUID Signature() const noexcept override;

private:
    bool FindCached(const PropertyName& name, ULONG& id);
    void Remember(ULONG id, const PropertyName& name);
    [[nodiscard]] HRESULT Create(const PropertyName& name, ULONG& id);

    StoreCore& core_;
    Mutex lock_;
    std::map<ULONG, PropertyName> byId_ QV_GUARDED_BY(lock_);
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_NAMES_H_
