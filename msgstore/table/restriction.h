// msgstore/table/restriction.h: restrictions and sort orders, owned, checked once, and evaluated.
#ifndef QUORVANE_MSGSTORE_TABLE_RESTRICTION_H_
#define QUORVANE_MSGSTORE_TABLE_RESTRICTION_H_

#include <memory>
#include <vector>

#include "msgstore/props/property_bag.h"

namespace quorvane {

// Where a restriction or a sort finds the properties of the row that it judges.
class PropertyLookup {
public:
    // The value with the tag's identifier if its type fits, as PropertyBag::Find has it; null if none. The
    // pointer holds until the next call.
    virtual const PropertyValue* Find(ULONG tag) const = 0;

    // The rows of a table of the row's own: its recipients (PR_MESSAGE_RECIPIENTS) or its attachments
    // (PR_MESSAGE_ATTACHMENTS). Null: it has no such table. Holds until the next call.
    virtual const std::vector<PropertyBag>* SubRows(ULONG) const { return nullptr; }

protected:
    ~PropertyLookup() = default;
};

// A bag as a row.
class BagLookup final : public PropertyLookup {
public:
    explicit BagLookup(const PropertyBag& bag) noexcept : bag_(bag) {}
    const PropertyValue* Find(ULONG tag) const override { return bag_.Find(tag); }

private:
    const PropertyBag& bag_;
};

class Restriction;

// Whoever answers a restriction by other means than Matches: takes its terms as it reads them, a group's
// parts through Restriction::Translate. Each member gives false for what it can't take. All may throw
// std::bad_alloc.
class RestrictionTranslator {
public:
    virtual bool Every() = 0;
    virtual bool Group(bool all, const std::vector<std::shared_ptr<const Restriction>>& parts) = 0;
    virtual bool Not(const Restriction& part) = 0;
    // relation  RELOP_LT to RELOP_NE.
    virtual bool Comparison(ULONG relation, ULONG tag, const PropertyValue& operand) = 0;
    virtual bool Content(ULONG level, ULONG tag, const PropertyValue& operand) = 0;
    virtual bool BitMask(bool zero, ULONG tag, ULONG mask) = 0;
    virtual bool Existence(ULONG tag) = 0;

protected:
    ~RestrictionTranslator() = default;
};

// A copy of a caller's SRestriction. Immutable once made; any thread may evaluate it.
class Restriction {
public:
    // Checks and copies.
    //
    // source  [in]   null gives a restriction that every row meets.
    // result  [out]  null on failure.
    //
    // S_OK; MAPI_E_INVALID_PARAMETER: a null pointer, an unknown kind, relation or match level;
    // MAPI_E_TOO_COMPLEX: nested deeper than 64 levels, RELOP_RE, or RES_SUBRESTRICTION on anything but
    // recipients and attachments; E_OUTOFMEMORY.
    [[nodiscard]] static HRESULT Make(const SRestriction* source,
                                      std::shared_ptr<const Restriction>& result) noexcept;

    virtual ~Restriction() = default;

    // Whether the row meets it. A property that the row lacks meets no comparison but RELOP_NE and no
    // other condition. Text compares without case where the level says FL_IGNORECASE or FL_LOOSE, and
    // always in RES_PROPERTY, as tables sort it. A restriction on a multi-valued property with MV_INSTANCE
    // or with a single-valued operand is met if one value meets it, RES_SUBRESTRICTION if one row of the
    // row's own table meets what it asks for.
    // May throw std::bad_alloc.
    virtual bool Matches(const PropertyLookup& row) const = 0;

    // Shows itself to a translator. False: it, or the translator, has no such terms.
    virtual bool Translate(RestrictionTranslator&) const { return false; }
};

// Orders two values of one property as a table does: numbers by value, false before true, text without
// regard to case (`Fold`) by its characters' numbers, binaries and identifiers byte by
// byte, a missing value (null) before all. Values of different type order by type. Less than, equal to or
// greater than 0.
int CompareValues(const PropertyValue* a, const PropertyValue* b) noexcept;

// Bytes that order, one by one, as CompareValues does their values. May throw std::bad_alloc.
Bytes SortKey(const PropertyValue& value);

// One column of a sort.
struct SortColumn {
    ULONG tag = PR_NULL;
    bool descending = false;
};

// Takes over the columns of a caller's order, those of categories among them. A null set gives none.
// MAPI_E_INVALID_PARAMETER: an unknown direction, more categories than columns, or more of them expanded than
// there are.
[[nodiscard]] HRESULT ReadSortOrder(const SSortOrderSet* set, std::vector<SortColumn>& columns) noexcept;

// Orders two rows by the columns; 0 if they are equal in all of them.
int CompareRows(const PropertyLookup& a, const PropertyLookup& b, const std::vector<SortColumn>& columns);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_TABLE_RESTRICTION_H_
