// persist/oledb_rows_win.h: the values that a command of OLE DB takes, and the rows that it gives.
#ifndef QUORVANE_ENGINE_PERSIST_OLEDB_ROWS_WIN_H_
#define QUORVANE_ENGINE_PERSIST_OLEDB_ROWS_WIN_H_

#include "engine/persist/database_backend.h"
#include "engine/persist/oledb_win.h"

namespace quorvane {

// Executes a command whose text is set, with its positional parameters in one block. `cursor` has run it;
// without columns it gives no rows. Results as DatabaseConnection::Run. Throws std::bad_alloc.
[[nodiscard]] HRESULT RunOledbCommand(ICommandText& command, std::span<const ParameterValue> values,
                                      std::span<const Column> columns,
                                      std::unique_ptr<DatabaseCursor>& cursor);

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_OLEDB_ROWS_WIN_H_
