// platform/cfb/element_name.h: the names of elements: which are allowed, and their order.
#ifndef QUORVANE_PLATFORM_CFB_ELEMENT_NAME_H_
#define QUORVANE_PLATFORM_CFB_ELEMENT_NAME_H_

#include "platform/cfb/format.h"
#include "platform/com/upper_case.h"

namespace quorvane::cfb {

// A name. Names are compared by their upper case: the shorter name comes first, then the unit with the lower
// number decides.
class ElementName {
public:
    ElementName() noexcept { text_[0] = 0; }

    // STG_E_INVALIDPOINTER  no text. STG_E_INVALIDNAME  empty, over 31 units, or with one of / \ : ! in it.
    [[nodiscard]] HRESULT Assign(LPCOLESTR text) noexcept;
    // Takes what a directory entry says: `count` units, at most kMaxName, of two little-endian bytes.
    void AssignRaw(const BYTE* units, std::size_t count) noexcept;
    // The same where kMaxName units can be read.
    void AssignWhole(const BYTE* units, std::size_t count) noexcept
    {
        length_ = count < kMaxName ? count : kMaxName;
        LoadUnits(text_, units, kMaxName);
        text_[length_] = 0;
    }
    // The same from units that have one byte each.
    void AssignNarrow(const BYTE* units, std::size_t count) noexcept;

    std::size_t Length() const noexcept { return length_; }
    // Ends with a null unit.
    const OLECHAR* Text() const noexcept { return text_; }

    // Negative, 0 or positive: this name comes before the other, is the same, comes after it.
    int Compare(const ElementName& other) const noexcept;
    // The same with the name in a directory entry.
    int CompareRaw(const BYTE* units, std::size_t count) const noexcept;
    // And with one whose units have one byte each.
    int CompareNarrow(const BYTE* units, std::size_t count) const noexcept;

private:
    template <class UnitAt>
    int CompareUnits(std::size_t from, const UnitAt& unitAt) const noexcept;

    std::size_t length_ = 0;
    OLECHAR text_[kMaxName + 1];  // what lies behind the end is of no meaning
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_ELEMENT_NAME_H_
