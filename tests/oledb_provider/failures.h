// tests/oledb_provider/failures.h: failures, described by error records on the thread.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_FAILURES_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_FAILURES_H_

#include <string>
#include <vector>

#include "platform/com/class_factory.h"
#include "platform/com/com_object.h"
#include "tests/oledb_provider/oledb.h"

struct sqlite3;

namespace quorvane::test {

// Leaves one record for each description, in their order, and returns `hr`. Without memory for them there are
// none.
HRESULT Fail(HRESULT hr, std::vector<std::string> descriptions) noexcept;

// The code of OLE DB for one of SQLite, described by what the database says of its last failure.
HRESULT FailAs(sqlite3* database, int code) noexcept;

// A ComObject whose failures are described, whichever interface they come from.
template <class Derived, class... Interfaces>
class DescribedObject : public ComObject<Derived, Interfaces..., ISupportErrorInfo> {
public:
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }

private:
    const ServerLockScope keepsModule_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_FAILURES_H_
