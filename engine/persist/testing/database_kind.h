// persist/testing/database_kind.h: which kind of database a program's tests run on.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_KIND_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_KIND_H_

#include "engine/persist/database.h"

namespace quorvane::testing {

// What differs between the kinds of database that the tests run on. They run on SQLite's own unless a program
// sets this before its first test.
struct DatabaseKind {
    const char* vfs = nullptr;  // by which SQLite reaches the tables of a file; null: the system's own
    long long tablesAt = 0;     // where SQLite's own bytes begin in a file
    HRESULT mayNotBeWritten = STG_E_ACCESSDENIED;  // opening such a database
    HRESULT valueMissing = kErrorsInCommand;       // a question mark has no value
};
inline DatabaseKind databaseKind;

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_KIND_H_
