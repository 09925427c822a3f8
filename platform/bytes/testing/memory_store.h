// platform/bytes/testing/memory_store.h: a byte store that tests look into.
#ifndef QUORVANE_PLATFORM_BYTES_TESTING_MEMORY_STORE_H_
#define QUORVANE_PLATFORM_BYTES_TESTING_MEMORY_STORE_H_

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "platform/bytes/byte_store.h"

namespace quorvane::test {

using Bytes = std::vector<BYTE>;

// Bytes in memory that can keep a log of all changes, and can be told to fail.
class MemoryStore final : public ByteStore {
public:
    struct Change {
        std::uint64_t offset;  // of the bytes; with `cut` the new size
        Bytes bytes;
        bool cut;
    };

    MemoryStore() = default;
    explicit MemoryStore(Bytes content) : bytes(std::move(content)) {}

    HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept override
    {
        *read = offset < bytes.size() ? std::min<std::size_t>(count, bytes.size() - offset) : 0;
        ++calls;
        moved += *read;
        if (*read > 0)
            std::memcpy(to, &bytes[offset], *read);
        return S_OK;
    }
    HRESULT WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept override
    {
        if (Fails())
            return STG_E_MEDIUMFULL;
        ++writes;
        ++calls;
        moved += count;
        const auto* begin = static_cast<const BYTE*>(from);
        // One change for each page: so far a kill lets a write come.
        for (std::size_t done = 0; done < count;) {
            const std::size_t part = std::min(count - done, kAtomicPage - (offset + done) % kAtomicPage);
            Apply(Change{offset + done, Bytes(begin + done, begin + done + part), false});
            done += part;
        }
        return S_OK;
    }
    HRESULT SetSize(std::uint64_t size) noexcept override
    {
        if (Fails())
            return STG_E_MEDIUMFULL;
        Apply(Change{size, {}, true});
        return S_OK;
    }
    HRESULT GetSize(std::uint64_t* size) noexcept override
    {
        *size = bytes.size();
        return S_OK;
    }
    void Apply(const Change& change)
    {
        if (keepLog)
            log.push_back(change);
        if (change.cut) {
            bytes.resize(change.offset);
            return;
        }
        if (bytes.size() < change.offset + change.bytes.size())
            bytes.resize(change.offset + change.bytes.size());
        std::copy(change.bytes.begin(), change.bytes.end(),
                  bytes.begin() + static_cast<std::ptrdiff_t>(change.offset));
    }

    Bytes bytes;
    std::size_t writes = 0;
    // How often bytes were read or written, and how many.
    std::uint64_t calls = 0;
    std::uint64_t moved = 0;
    bool keepLog = false;
    std::vector<Change> log;
    // The change with this number fails, and all after it while `stays`.
    std::optional<std::size_t> failAt;
    bool failed = false;

private:
    bool Fails()
    {
        if (!failAt)
            return false;
        if (*failAt > 0) {
            --*failAt;
            return false;
        }
        failed = true;
        failAt.reset();
        return true;
    }
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_BYTES_TESTING_MEMORY_STORE_H_
