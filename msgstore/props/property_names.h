// msgstore/props/property_names.h: names of properties with identifiers from 0x8000 on.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_NAMES_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_NAMES_H_

#include <memory>
#include <utility>
#include <vector>

#include "platform/mapi/mapi.h"

namespace quorvane {

inline constexpr ULONG kFirstNamedId = 0x8000;
inline constexpr ULONG kLastNamedId = 0xFFFE;

// A property's name: a set and, within it, a number (MNID_ID) or a text (MNID_STRING, compared exactly).
struct PropertyName {
    GUID set{};
    ULONG kind = MNID_ID;
    LONG number = 0;
    OleString text;

    friend bool operator==(const PropertyName& a, const PropertyName& b) noexcept
    {
        return a.set == b.set && a.kind == b.kind &&
               (a.kind == MNID_ID ? a.number == b.number : a.text == b.text);
    }
};

// A two-way map of names and identifiers, one for a store and one for a message on a storage. It never
// forgets and never changes an entry. Any thread may call.
class PropertyNames {
public:
    virtual ~PropertyNames() = default;

    // The name of an identifier. MAPI_E_NOT_FOUND: it has none.
    [[nodiscard]] virtual HRESULT NameOf(ULONG id, PropertyName& name) noexcept = 0;

    // The identifier of a name, given out at once and for good if `create` is true and there was none.
    // MAPI_E_NOT_FOUND: there is none; MAPI_E_NOT_ENOUGH_RESOURCES: all identifiers are used up;
    // MAPI_E_NO_ACCESS: `create`, and the place can't be written. Sets PS_MAPI never get here.
    [[nodiscard]] virtual HRESULT IdOf(const PropertyName& name, bool create, ULONG& id) noexcept = 0;

    // All entries, in ascending order of identifiers.
    [[nodiscard]] virtual HRESULT All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept = 0;

    // Equal for objects whose identifiers mean the same: PR_MAPPING_SIGNATURE.
    virtual GUID Signature() const noexcept = 0;
};

// A map in memory, for objects that are made before they have a place. Locks itself.
std::shared_ptr<PropertyNames> MakeMemoryNames();

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_NAMES_H_
