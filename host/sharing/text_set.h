// host/sharing/text_set.h: which of very many texts were there.
#ifndef QUORVANE_HOST_SHARING_TEXT_SET_H_
#define QUORVANE_HOST_SHARING_TEXT_SET_H_

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "host/exchange/keys.h"

namespace quorvane::host {

// A set of texts that takes 16 bytes for each, however long: their digests. Adding many and then asking is
// what it is made for. One thread at a time.
class TextSet {
public:
    void Add(std::string_view text)
    {
        digests_.push_back(exchange::BeginningOfDigest<kSize>(text));
        isSorted_ = false;
    }
    bool Has(std::string_view text)
    {
        if (!isSorted_)
            std::sort(digests_.begin(), digests_.end());
        isSorted_ = true;
        return std::binary_search(digests_.begin(), digests_.end(), exchange::BeginningOfDigest<kSize>(text));
    }

private:
    static constexpr std::size_t kSize = 16;
    std::vector<std::array<unsigned char, kSize>> digests_;
    bool isSorted_ = true;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_TEXT_SET_H_
