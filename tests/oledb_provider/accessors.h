// tests/oledb_provider/accessors.h: accessors, for commands and rowsets.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_ACCESSORS_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_ACCESSORS_H_

#include <map>
#include <mutex>
#include <vector>

#include "tests/oledb_provider/failures.h"

namespace quorvane::test {

// Handles and what stands for them. Any thread may call.
class Accessors {
public:
    // The results of IAccessor's operations of these names.
    HRESULT Create(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING* bindings, DBLENGTH rowSize,
                   HACCESSOR* accessor, DBBINDSTATUS* statuses) noexcept;
    HRESULT AddReference(HACCESSOR accessor, DBREFCOUNT* references) noexcept;
    HRESULT Release(HACCESSOR accessor, DBREFCOUNT* references) noexcept;
    HRESULT Get(HACCESSOR accessor, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                DBBINDING** bindings) const noexcept;

    // The bindings of an accessor of a kind. DB_E_BADACCESSORHANDLE, DB_E_BADACCESSORTYPE, described;
    // E_OUTOFMEMORY.
    HRESULT Find(HACCESSOR accessor, DBACCESSORFLAGS kind, std::vector<DBBINDING>& bindings) const noexcept;

private:
    struct Entry {
        DBACCESSORFLAGS flags;
        std::vector<DBBINDING> bindings;
        DBREFCOUNT references;
    };

    mutable std::mutex mutex_;
    std::map<HACCESSOR, Entry> entries_;
    HACCESSOR last_ = 0;
};

// A COM object that has accessors.
template <class Derived, class... Interfaces>
class ObjectWithAccessors : public DescribedObject<Derived, Interfaces..., IAccessor> {
public:
    HRESULT STDMETHODCALLTYPE CreateAccessor(DBACCESSORFLAGS flags, DBCOUNTITEM count,
                                             const DBBINDING* bindings, DBLENGTH rowSize, HACCESSOR* accessor,
                                             DBBINDSTATUS* statuses) override
    {
        return accessors_.Create(flags, count, bindings, rowSize, accessor, statuses);
    }
    HRESULT STDMETHODCALLTYPE AddRefAccessor(HACCESSOR accessor, DBREFCOUNT* references) override
    {
        return accessors_.AddReference(accessor, references);
    }
    HRESULT STDMETHODCALLTYPE ReleaseAccessor(HACCESSOR accessor, DBREFCOUNT* references) override
    {
        return accessors_.Release(accessor, references);
    }
    HRESULT STDMETHODCALLTYPE GetBindings(HACCESSOR accessor, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                                          DBBINDING** bindings) override
    {
        return accessors_.Get(accessor, flags, count, bindings);
    }

protected:
    Accessors accessors_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_ACCESSORS_H_
