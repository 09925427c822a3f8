// host/mime/value_writer.h: a property's value of any size, written piece by piece.
#ifndef QUORVANE_HOST_MIME_VALUE_WRITER_H_
#define QUORVANE_HOST_MIME_VALUE_WRITER_H_

#include <string>
#include <string_view>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Sets a binary or Unicode property: at once when its value is small, through a stream when it isn't. The
// object is to outlive it. One thread at a time.
class ValueWriter {
public:
    ValueWriter(IMAPIProp& object, ULONG tag) noexcept : object_(object), tag_(tag) {}

    // More of the value: bytes of a binary one, UTF-8 of a text. A piece of text begins and ends with a whole
    // character. The codes are the object's own, and STG_E_MEDIUMFULL.
    [[nodiscard]] HRESULT Put(std::string_view piece);
    // Sets the value; to be called once.
    [[nodiscard]] HRESULT End();

private:
    [[nodiscard]] HRESULT Write(std::string_view piece);

    IMAPIProp& object_;
    const ULONG tag_;
    std::string first_;  // all of it, while it is small
    ComPtr<IStream> stream_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_VALUE_WRITER_H_
