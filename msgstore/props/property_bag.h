// msgstore/props/property_bag.h: the properties of one object, ordered and found by identifier.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_BAG_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_BAG_H_

#include <vector>

#include "msgstore/props/property_value.h"

namespace quorvane {

// Holds at most one value for each property identifier, in ascending order. Value semantics; no lock.
class PropertyBag {
public:
    using const_iterator = std::vector<PropertyValue>::const_iterator;

    // The value with the tag's identifier, if its type fits: the same, PT_UNSPECIFIED, or the other kind
    // of text. Null if there is none. The pointer holds until the bag changes.
    const PropertyValue* Find(ULONG tag) const noexcept;
    // The value with the identifier, whatever its type.
    const PropertyValue* FindId(ULONG id) const noexcept;

    // Adds or replaces the value of that identifier. May throw std::bad_alloc.
    void Put(PropertyValue value);
    // True if there was a value of that identifier.
    bool Erase(ULONG id) noexcept;
    void Clear() noexcept { values_.clear(); }

    std::size_t size() const noexcept { return values_.size(); }
    bool empty() const noexcept { return values_.empty(); }
    const_iterator begin() const noexcept { return values_.begin(); }
    const_iterator end() const noexcept { return values_.end(); }

    // Sum of ByteSize over all values.
    std::uint64_t ByteSize() const noexcept;

private:
    std::vector<PropertyValue> values_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_BAG_H_
