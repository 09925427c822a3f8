// msgstore/imsg/storage_names.h: the named properties of a message on a storage (MS-OXMSG).
#ifndef QUORVANE_MSGSTORE_IMSG_STORAGE_NAMES_H_
#define QUORVANE_MSGSTORE_IMSG_STORAGE_NAMES_H_

#include <map>

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/props/property_names.h"

namespace quorvane {

// The map of an outermost message, which those embedded in it share. Read from its storage at the first
// use; what was added is written by Save. Any thread may call: it takes the lock of the message's folders,
// which a save holds as well.
class StorageNames final : public PropertyNames {
public:
    explicit StorageNames(std::shared_ptr<StorageFolder> message);

    [[nodiscard]] HRESULT NameOf(ULONG id, PropertyName& name) noexcept override;
    [[nodiscard]] HRESULT IdOf(const PropertyName& name, bool create, ULONG& id) noexcept override;
    [[nodiscard]] HRESULT All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept override;
    GUID Signature() const noexcept override { return signature_; }

    // Writes the map if it has grown since it was read, or if the message has none yet.
    [[nodiscard]] HRESULT Save();

private:
    [[nodiscard]] HRESULT Load();
    [[nodiscard]] HRESULT ReadEntries();
    void ReadEntry(const BYTE* entry, const Bytes& sets, const Bytes& texts);
    ULONG NextId() const noexcept;

    const std::shared_ptr<StorageFolder> message_;
    GUID signature_{};
    bool loaded_ = false;
    bool saved_ = false;
    std::map<ULONG, PropertyName> names_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_STORAGE_NAMES_H_
