// tests/oledb_provider/oledb.h: OLE DB's interfaces as ComPtr and ComObject take them.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_OLEDB_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_OLEDB_H_

#include "platform/com/com.h"
// The order matters.
#include <oledb.h>
#include <oledberr.h>
#include <transact.h>

#include "platform/com/com_ptr.h"

QUORVANE_IID(IDBInitialize, IID_IDBInitialize);
QUORVANE_IID(IDBProperties, IID_IDBProperties);
QUORVANE_IID(IDBCreateSession, IID_IDBCreateSession);
QUORVANE_IID(IDBCreateCommand, IID_IDBCreateCommand);
QUORVANE_IID(ICommand, IID_ICommand);
QUORVANE_IID(ICommandText, IID_ICommandText);
QUORVANE_IID(IAccessor, IID_IAccessor);
QUORVANE_IID(IRowset, IID_IRowset);
QUORVANE_IID(IColumnsInfo, IID_IColumnsInfo);
QUORVANE_IID(ITransaction, IID_ITransaction);
QUORVANE_IID(ITransactionLocal, IID_ITransactionLocal);
QUORVANE_IID(IErrorRecords, IID_IErrorRecords);

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_OLEDB_H_
