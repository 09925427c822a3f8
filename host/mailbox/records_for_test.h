// host/mailbox/records_for_test.h: the program's records of a mailbox that has nothing else, for one test.
#ifndef QUORVANE_HOST_MAILBOX_RECORDS_FOR_TEST_H_
#define QUORVANE_HOST_MAILBOX_RECORDS_FOR_TEST_H_

#include <string>

#include "host/mailbox/records.h"

namespace quorvane::host {

// Makes the tables of a member's mailbox in a new file; its path.
inline std::string MakeTables(const std::string& path, const std::string& name = "alice")
{
    Database database(path, Database::Mode::kCreate);
    Transaction transaction(database);
    Records::CreateTables(database, name, "0011223344556677");
    transaction.Commit();
    return path;
}

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_RECORDS_FOR_TEST_H_
