// session/mdb_import.h: CMDBImport, a class of the library without behaviour of its own.
#ifndef QUORVANE_ENGINE_SESSION_MDB_IMPORT_H_
#define QUORVANE_ENGINE_SESSION_MDB_IMPORT_H_

#include "engine/session/context/operations.h"

namespace quorvane {

class CMDBImport final : public ComObject<CMDBImport, DispatchImpl<IMDBImport>> {};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_MDB_IMPORT_H_
