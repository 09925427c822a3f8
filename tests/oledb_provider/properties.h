// tests/oledb_provider/properties.h: what a data source is initialised with.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_PROPERTIES_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_PROPERTIES_H_

#include <array>

#include "platform/com/variant.h"
#include "tests/oledb_provider/oledb.h"

namespace quorvane::test {

// The initialisation properties and their values, as IDBProperties deals with them. One thread at a time.
class Properties {
public:
    Properties() noexcept;

    // The results of IDBProperties' operations of these names; a value of another type than the property's is
    // refused.
    HRESULT Set(ULONG count, DBPROPSET* sets) noexcept;
    HRESULT Get(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPSET** sets) const noexcept;
    static HRESULT Describe(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPINFOSET** sets,
                            OLECHAR** texts) noexcept;

    // A property's value; VT_EMPTY until it is set.
    const VARIANT& DataSource() const noexcept { return values_[0].Raw(); }
    const VARIANT& UserId() const noexcept { return values_[1].Raw(); }
    const VARIANT& Mode() const noexcept { return values_[3].Raw(); }
    const VARIANT& Prompt() const noexcept { return values_[4].Raw(); }
    const VARIANT& Window() const noexcept { return values_[5].Raw(); }
    // -1: none. A service component that doesn't know a provider's own property passes it on as text.
    LONG EngineType() const noexcept;

private:
    DBPROPSTATUS SetOne(const GUID& set, const DBPROP& property) noexcept;

    std::array<Variant, 8> values_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_PROPERTIES_H_
