#include "msgstore/props/property_names.h"

#include <mutex>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

class MemoryNames final : public PropertyNames {
public:
    MemoryNames()
    {
        // A signature of zeros would equal another map's; without one, the map goes unshared at its address.
        if (FAILED(CoCreateGuid(&signature_)))
            signature_.Data1 = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this));
    }

    HRESULT NameOf(ULONG id, PropertyName& name) noexcept override
    {
        const std::lock_guard lock(mutex_);
        if (id < kFirstNamedId || id - kFirstNamedId >= names_.size())
            return MAPI_E_NOT_FOUND;
        return Guarded([&] {
            name = names_[id - kFirstNamedId];
            return S_OK;
        });
    }

    HRESULT IdOf(const PropertyName& name, bool create, ULONG& id) noexcept override
    {
        const std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < names_.size(); ++i) {
            if (names_[i] == name) {
                id = kFirstNamedId + static_cast<ULONG>(i);
                return S_OK;
            }
        }
        if (!create)
            return MAPI_E_NOT_FOUND;
        if (names_.size() > kLastNamedId - kFirstNamedId)
            return MAPI_E_NOT_ENOUGH_RESOURCES;
        return Guarded([&] {
            names_.push_back(name);
            id = kFirstNamedId + static_cast<ULONG>(names_.size() - 1);
            return S_OK;
        });
    }

    HRESULT All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept override
    {
        const std::lock_guard lock(mutex_);
        return Guarded([&] {
            entries.clear();
            for (std::size_t i = 0; i < names_.size(); ++i)
                entries.emplace_back(kFirstNamedId + static_cast<ULONG>(i), names_[i]);
            return S_OK;
        });
    }

    GUID Signature() const noexcept override { return signature_; }

private:
    std::mutex mutex_;
    std::vector<PropertyName> names_;
    GUID signature_{};
};

}  // namespace

std::shared_ptr<PropertyNames> MakeMemoryNames()
{
    return std::make_shared<MemoryNames>();
}

}  // namespace quorvane
