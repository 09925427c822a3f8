// msgstore/props/property_copy.h: copies properties between any two objects of MAPI.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_COPY_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_COPY_H_

#include <vector>

#include "platform/mapi/mapi.h"

namespace quorvane {

// What the named properties of one object are called in another.
class IdExchange {
public:
    // Asks for the names of all `tags` from 0x8000 on at once, and has the target give out what it lacks.
    // Nothing is asked if both objects state one PR_MAPPING_SIGNATURE.
    [[nodiscard]] HRESULT Prepare(IMAPIProp& source, const std::vector<ULONG>& tags, IMAPIProp& target);

    // The target's tag for one of these; the tag itself below 0x8000; 0 for one without a name.
    ULONG TagFor(ULONG tag) const noexcept;

private:
    HRESULT Ask(IMAPIProp& source, IMAPIProp& target);

    std::vector<ULONG> from_;
    std::vector<ULONG> to_;
};

// Copies the given properties, in the order given. Objects (PT_OBJECT) aren't this function's: it skips
// them. Values that the source doesn't list are carried by streams. Identifiers from 0x8000 on are
// exchanged by their names, unless both objects state one PR_MAPPING_SIGNATURE; one without a name in
// the source isn't copied. No lock is held.
//
// tags      [in]      with the types that the source keeps, or PT_UNSPECIFIED.
// problems  [in,out]  what couldn't be copied is appended, with its place in `tags` and its tag; a property
//                     that the source hasn't is one with MAPI_E_NOT_FOUND.
//
// S_OK; a failure that ends all copying: E_ACCESSDENIED of the target, E_OUTOFMEMORY...
[[nodiscard]] HRESULT CopyProperties(IMAPIProp& source, const std::vector<ULONG>& tags, IMAPIProp& target,
                                     std::vector<SPropProblem>& problems) noexcept;

// Copies a property of string or binary type through streams.
[[nodiscard]] HRESULT CopyThroughStreams(IMAPIProp& source, ULONG sourceTag, IMAPIProp& target,
                                         ULONG targetTag) noexcept;

// Whether a property's failure to be copied means that something was lost: not if it's the target's own,
// has no value, or has no name.
bool IsLoss(HRESULT problem) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_COPY_H_
