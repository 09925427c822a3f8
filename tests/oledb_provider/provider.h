// tests/oledb_provider/provider.h: a database provider that stands in for Access's where there is none.
//
// The library qv_oledb_provider.dll has the entry points of a COM server. It registers one class, under the
// program identifier of Access's provider, unless another class is registered under that; any thread may then
// make data sources, in any apartment. The files that it reads are those of access_file.h.
//
// Beside them it exports QuorvaneProviderNotes, by which a test sees what the provider has been told.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_PROVIDER_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_PROVIDER_H_

#include "platform/com/com.h"

namespace quorvane::test {

inline constexpr OLECHAR kProviderLibrary[] = OLESTR("qv_oledb_provider.dll");
inline constexpr OLECHAR kProviderProgramId[] = OLESTR("Microsoft.ACE.OLEDB.12.0");
inline constexpr GUID kProviderClass = {
    0x9F223197, 0x8AEC, 0x4A32, {0x94, 0x63, 0xAD, 0x09, 0x4E, 0xC6, 0x07, 0x61}};

// What the last data source was initialised with, whatever came of it.
struct ProviderNotes {
    ULONG initialized = 0;  // how often that happened in this process
    ULONG released = 0;     // how many data sources are gone
    OLECHAR dataSource[MAX_PATH] = {};
    OLECHAR userId[32] = {};
    LONG mode = -1;  // of these, -1 is a property that was not set
    LONG prompt = -1;
    LONG engineType = -1;
    BOOL hasWindow = FALSE;
};

// Exported as QuorvaneProviderNotes.
using GetProviderNotes = void(STDMETHODCALLTYPE*)(ProviderNotes*);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_PROVIDER_H_
