// persist/packed_texts.h: a list of very many texts, in the small form in which a hash store keeps its own.
#ifndef QUORVANE_ENGINE_PERSIST_PACKED_TEXTS_H_
#define QUORVANE_ENGINE_PERSIST_PACKED_TEXTS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/com/bstr.h"

namespace quorvane {

// For one thread at a time. An identifier takes a byte for two of its digits and five more.
class PackedTexts {
public:
    ULONG Count() const noexcept { return static_cast<ULONG>(ends_.size()); }

    // Adds a text at the end. E_OUTOFMEMORY, also for more than 4 GB of texts: nothing was added.
    [[nodiscard]] HRESULT Append(OleStringView text) noexcept;
    // The same for one that is packed already (hash_text.h) and not null.
    [[nodiscard]] HRESULT AppendPacked(std::string_view packed) noexcept;
    // Takes the last text away; there is one.
    void RemoveLast() noexcept;

    // index  [in]   below Count().
    // text   [out]  untouched after a failure.
    //
    // E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Read(ULONG index, Bstr& text) const noexcept;

private:
    std::size_t StartOf(ULONG index) const noexcept { return index == 0 ? 0 : ends_[index - 1]; }

    std::string bytes_;
    std::vector<std::uint32_t> ends_;  // of each text in `bytes_`
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_PACKED_TEXTS_H_
