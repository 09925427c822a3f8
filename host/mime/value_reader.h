// host/mime/value_reader.h: a property's value of any size, read piece by piece.
#ifndef QUORVANE_HOST_MIME_VALUE_READER_H_
#define QUORVANE_HOST_MIME_VALUE_READER_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// A text, in UTF-8, or a binary value, as it is at each reading. What an object gives at once is kept; what
// it declines to is read through a stream. Any thread that may call the object, one at a time.
class ValueReader {
public:
    // Takes one more piece; false: it has enough.
    using Visit = std::function<bool(std::string_view)>;

    // Looks at a property of `object`, which is to outlive this. `tag` is the PT_UNICODE one for a text,
    // whose 8-bit form (in `codePage`) is used when the object has no other. S_OK also when there is none;
    // the object's own code.
    [[nodiscard]] HRESULT OpenText(IMAPIProp& object, ULONG tag, ULONG codePage);
    [[nodiscard]] HRESULT OpenBinary(IMAPIProp& object, ULONG tag);

    [[nodiscard]] bool Exists() const noexcept { return object_ != nullptr; }
    [[nodiscard]] bool IsEmpty() const noexcept { return !Exists() || (small_ && small_->empty()); }

    // Hands over the value from its beginning; pieces of a text begin and end with whole characters.
    [[nodiscard]] HRESULT Read(const Visit& visit) const;
    // All of it.
    [[nodiscard]] HRESULT ReadAll(std::string& value) const;

private:
    [[nodiscard]] HRESULT Look(IMAPIProp& object, ULONG tag);
    [[nodiscard]] HRESULT ReadStream(const Visit& visit) const;
    [[nodiscard]] HRESULT ReadWide(const Visit& visit) const;
    [[nodiscard]] HRESULT ReadNarrow(const Visit& visit) const;

    IMAPIProp* object_ = nullptr;  // null: there is no such value
    ULONG tag_ = PR_NULL;
    ULONG codePage_ = 0;
    std::optional<std::string> small_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_VALUE_READER_H_
