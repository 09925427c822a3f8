// msgstore/imsg/storage_value.h: a property's value that stays in its stream.
#ifndef QUORVANE_MSGSTORE_IMSG_STORAGE_VALUE_H_
#define QUORVANE_MSGSTORE_IMSG_STORAGE_VALUE_H_

#include <algorithm>

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/util/guarded.h"

namespace quorvane {

// Reads from a stream of a storage as long as that storage stays.
class StorageValue final : public LargeValue {
public:
    // size  the bytes to show, not more than the stream has.
    StorageValue(std::shared_ptr<StorageFolder> folder, OleString name, std::uint64_t size)
        : folder_(std::move(folder)), name_(std::move(name)), size_(size)
    {}

    std::uint64_t Size() const noexcept override { return size_; }
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count,
                                 ULONG& read) noexcept override
    {
        read = 0;
        if (offset >= size_)
            return S_OK;
        const auto wanted = static_cast<ULONG>(std::min<std::uint64_t>(count, size_ - offset));
        return Guarded([&] { return folder_->ReadStreamAt(name_, offset, buffer, wanted, read); });
    }

    // Whether this is the value of that stream, so that it needn't be written there.
    bool IsStream(const StorageFolder& folder, const OleString& name) const noexcept
    {
        return folder_.get() == &folder && name_ == name;
    }

private:
    const std::shared_ptr<StorageFolder> folder_;
    const OleString name_;
    const std::uint64_t size_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_STORAGE_VALUE_H_
