// tests/oledb_provider/registered_provider.h: the tests' provider, registered while a program's tests run.
//
// A program that is linked with this finds the provider, and the files that it reads (access_file.h). Where
// Access's own provider is registered the program fails.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_REGISTERED_PROVIDER_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_REGISTERED_PROVIDER_H_

#include "tests/oledb_provider/provider.h"

namespace quorvane::test {

// What the provider was told last.
ProviderNotes LastProviderNotes();

// Whether an object of the provider is alive in this process.
bool ProviderIsInUse();

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_REGISTERED_PROVIDER_H_
