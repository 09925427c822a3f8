// tests/oledb_provider/data_source.h: the class that is registered.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_DATA_SOURCE_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_DATA_SOURCE_H_

#include <memory>
#include <mutex>

#include "tests/oledb_provider/connection.h"
#include "tests/oledb_provider/failures.h"
#include "tests/oledb_provider/properties.h"
#include "tests/oledb_provider/provider.h"

namespace quorvane::test {

// A file that is opened by a session each. Any thread may call.
class DataSource final
    : public DescribedObject<DataSource, IDBInitialize, IDBProperties, IDBCreateSession, IPersist> {
public:
    ~DataSource();

    // DB_E_ALREADYINITIALIZED; E_FAIL: no file is named, the mode isn't for reading and writing, or the file
    // can't be opened. DB_SEC_E_PERMISSIONDENIED: it may not be written.
    HRESULT STDMETHODCALLTYPE Initialize() override;
    // DB_E_OBJECTOPEN isn't told: sessions keep what they need.
    HRESULT STDMETHODCALLTYPE Uninitialize() override;

    // E_UNEXPECTED once it is initialised.
    HRESULT STDMETHODCALLTYPE SetProperties(ULONG count, DBPROPSET* sets) override;
    HRESULT STDMETHODCALLTYPE GetProperties(ULONG count, const DBPROPIDSET* asked, ULONG* given,
                                            DBPROPSET** sets) override;
    HRESULT STDMETHODCALLTYPE GetPropertyInfo(ULONG count, const DBPROPIDSET* asked, ULONG* given,
                                              DBPROPINFOSET** sets, OLECHAR** texts) override;

    // E_UNEXPECTED before it is initialised; as Initialize.
    HRESULT STDMETHODCALLTYPE CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) override;

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;

private:
    OleString Path() const;

    std::mutex mutex_;
    Properties properties_;
    bool isInitialized_ = false;
};

// What the last initialisation of this process saw.
void TakeProviderNotes(ProviderNotes& notes) noexcept;

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_DATA_SOURCE_H_
