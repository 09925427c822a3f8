// persist/access_database_win.h: a database behind an OLE DB provider.
#ifndef QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_
#define QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_

#include "engine/persist/database_backend.h"
#include "platform/com/com_ptr.h"

struct IDBInitialize;

namespace quorvane {

// The database that an initialised data source stands for; any thread may use that. It is uninitialised with
// the backend. Failures of what it makes are the provider's; they are described by the provider's error
// records, if it leaves any. A provider's answers are checked. E_UNEXPECTED, described: it breaks the rules
// of OLE DB, with lengths that have no room, rows that weren't asked for, or successes that give nothing.
// E_INVALIDARG, described: a row's value has no room, isn't of its column's type or wasn't given, or there is
// another number of columns. Throws std::bad_alloc.
std::unique_ptr<DatabaseBackend> MakeOledbBackend(IDBInitialize* source);

// Initialises a data source: the provider may ask the user for what its connection string lacks. Failures are
// the provider's, described.
[[nodiscard]] HRESULT InitializeOledbSource(IDBInitialize* source) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_
