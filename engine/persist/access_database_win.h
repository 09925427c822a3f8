// persist/access_database_win.h: a database behind an OLE DB provider.
#ifndef QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_
#define QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_

#include "engine/persist/database_backend.h"
#include "platform/com/com_ptr.h"

struct IDBInitialize;

namespace quorvane {

// The database that an initialised data source stands for; any thread may use that. It is uninitialised with
// the backend. Failures of what it makes are the provider's; they are described by the provider's error
// records. Throws std::bad_alloc.
std::unique_ptr<DatabaseBackend> MakeOledbBackend(IDBInitialize* source);

// Initialises a data source: the provider may ask the user for what its connection string lacks. Failures are
// the provider's, described.
[[nodiscard]] HRESULT InitializeOledbSource(IDBInitialize* source) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_ACCESS_DATABASE_WIN_H_
