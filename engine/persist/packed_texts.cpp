#include "engine/persist/packed_texts.h"

#include <limits>

#include "engine/persist/hash_text.h"

namespace quorvane {

HRESULT PackedTexts::Append(OleStringView text) noexcept
{
    try {
        return AppendPacked(PackHashText(text));
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT PackedTexts::AppendPacked(std::string_view packed) noexcept
{
    const std::size_t start = bytes_.size();
    if (packed.size() > std::numeric_limits<std::uint32_t>::max() - start)
        return E_OUTOFMEMORY;
    try {
        bytes_.append(packed);
        ends_.push_back(static_cast<std::uint32_t>(bytes_.size()));
        return S_OK;
    } catch (...) {
        bytes_.resize(start);
        return E_OUTOFMEMORY;
    }
}

void PackedTexts::RemoveLast() noexcept
{
    bytes_.resize(StartOf(Count() - 1));
    ends_.pop_back();
}

HRESULT PackedTexts::Read(ULONG index, Bstr& text) const noexcept
{
    try {
        const std::size_t start = StartOf(index);
        text = Bstr(UnpackHashText(std::string_view(bytes_).substr(start, ends_[index] - start)));
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
