// msgstore/store/property_rows.h: bags of properties as columns of the store's file.
//
// The bytes are those of property_codec.h. A list of recipients is, little-endian: a 32-bit count, then for
// each a 32-bit size and a bag of that size; packed as one record where that's worth it.
#ifndef QUORVANE_MSGSTORE_STORE_PROPERTY_ROWS_H_
#define QUORVANE_MSGSTORE_STORE_PROPERTY_ROWS_H_

#include <memory>

#include "msgstore/props/property_codec.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// A bag whole, values out of line read into it. MAPI_E_NOT_ENOUGH_MEMORY: one of them exceeds
// kWholeTextLimit.
[[nodiscard]] HRESULT EncodeWhole(const PropertyBag& bag, Bytes& bytes);

[[nodiscard]] HRESULT EncodeRecipients(const std::vector<PropertyBag>& recipients, Bytes& bytes);
// MAPI_E_CORRUPT_DATA: the bytes aren't a list of recipients.
[[nodiscard]] HRESULT DecodeRecipients(ByteView bytes, std::vector<PropertyBag>& recipients);

// A large value in rows of its own. Reading fails with MAPI_E_OBJECT_CHANGED once the rows are gone.
class StoredValue final : public LargeValue {
public:
    StoredValue(std::shared_ptr<StoreCore> core, std::int64_t id, std::uint64_t size) noexcept
        : core_(std::move(core)), id_(id), size_(size)
    {}

    std::uint64_t Size() const noexcept override { return size_; }
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count,
                                 ULONG& read) noexcept override;

    const StoreCore* Core() const noexcept { return core_.get(); }
    std::int64_t Id() const noexcept { return id_; }

private:
    const std::shared_ptr<StoreCore> core_;
    const std::int64_t id_;
    const std::uint64_t size_;
};

// Adds the large values of a part to its bag.
[[nodiscard]] HRESULT ReadLargeValues(SqliteConnection& connection, const std::shared_ptr<StoreCore>& core,
                                      std::int64_t partId, PropertyBag& bag);
// The same for use within the connection's transaction.
[[nodiscard]] HRESULT ReadLargeValues(SqliteConnection& connection, std::int64_t partId, PropertyBag& bag);

// Within a transaction that writes: writes a value to rows of its own, piece by piece.
[[nodiscard]] HRESULT InsertLargeValue(SqliteConnection& connection, std::int64_t partId, ULONG tag,
                                       LargeValue& value);
// The same for bytes in memory.
[[nodiscard]] HRESULT InsertLargeValue(SqliteConnection& connection, std::int64_t partId, ULONG tag,
                                       const Bytes& bytes);
// Makes a copy of a value's rows under another part. MAPI_E_OBJECT_CHANGED: they are gone.
[[nodiscard]] HRESULT CopyLargeValue(SqliteConnection& connection, std::int64_t valueId, std::int64_t partId,
                                     ULONG tag);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_PROPERTY_ROWS_H_
