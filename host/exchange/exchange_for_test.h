// host/exchange/exchange_for_test.h: bytes in memory, errors that are thrown, and texts in place of contents.
#ifndef QUORVANE_HOST_EXCHANGE_EXCHANGE_FOR_TEST_H_
#define QUORVANE_HOST_EXCHANGE_EXCHANGE_FOR_TEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "host/exchange/byte_source.h"
#include "host/exchange/error.h"
#include "host/exchange/revision.h"

namespace quorvane::host::exchange {

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t Size() const override { return bytes_.size(); }
    void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const override
    {
        if (at > bytes_.size() || size > bytes_.size() - at)
            FailForNow("the test's bytes have no place " + std::to_string(at));
        std::copy_n(bytes_.data() + at, size, buffer);
    }

private:
    std::string bytes_;
};

// What stands for a text in a revision.
inline ContentDigest DigestOfText(const std::string& text)
{
    return BeginningOfDigest<std::tuple_size_v<ContentDigest>>(text);
}

// The text of the Error of this kind that a call throws; a failed test and an empty text when it throws none.
template <class Call>
std::string ErrorOf(Error::Kind kind, Call call)
{
    try {
        call();
    } catch (const Error& error) {
        EXPECT_EQ(error.What(), kind) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

template <class Call>
std::string RefusalOf(Call call)
{
    return ErrorOf(Error::Kind::kRefused, call);
}

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_EXCHANGE_FOR_TEST_H_
