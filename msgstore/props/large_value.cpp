#include "msgstore/props/large_value.h"

#include <algorithm>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// Whether the value is as long as it says. A size that comes from outside is a claim until its last byte was
// there.
HRESULT CheckEnd(LargeValue& value, std::uint64_t size) noexcept
{
    BYTE last = 0;
    ULONG read = 0;
    if (size > 0)
        QV_RETURN_IF_FAILED(value.ReadAt(size - 1, &last, sizeof(last), read));
    return size == 0 || read == sizeof(last) ? S_OK : MAPI_E_CORRUPT_DATA;
}

}  // namespace

HRESULT ReadWhole(LargeValue& value, std::uint64_t limit, Bytes& bytes) noexcept
{
    constexpr std::uint64_t kStep = 1024 * 1024;
    bytes.clear();
    const std::uint64_t size = value.Size();
    if (size > limit)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    QV_RETURN_IF_FAILED(CheckEnd(value, size));
    const HRESULT hr = Guarded([&]() -> HRESULT {
        bytes.resize(size);
        for (std::uint64_t at = 0; at < size;) {
            ULONG read = 0;
            const auto wanted = static_cast<ULONG>(std::min(kStep, size - at));
            QV_RETURN_IF_FAILED(value.ReadAt(at, bytes.data() + at, wanted, read));
            if (read == 0)
                return MAPI_E_CORRUPT_DATA;
            at += read;
        }
        return S_OK;
    });
    if (FAILED(hr))
        bytes.clear();
    return hr;
}

}  // namespace quorvane
