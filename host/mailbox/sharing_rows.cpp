#include "host/mailbox/sharing_rows.h"

#include <cstdio>

#include "quorvane3/com.h"

namespace quorvane::host {

std::unordered_map<std::string, SharingRow> ReadSharingRows(const Mailbox& mailbox)
{
    Database database = mailbox.OpenSharingDatabase();
    Statement select(database, "SELECT ID, EntryID, StoreID, LastModified FROM tblItem");
    std::unordered_map<std::string, SharingRow> rows;
    while (select.Step()) {
        SharingRow row{select.Text(0), select.Text(1), select.Text(2), select.Real(3)};
        std::string key = row.entryId;
        rows.emplace(std::move(key), std::move(row));
    }
    return rows;
}

double RowTimeOf(std::uint64_t fileTime) noexcept
{
    const FILETIME time{static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)};
    SYSTEMTIME parts{};
    double days = 0;
    if (!FileTimeToSystemTime(&time, &parts) || !SystemTimeToVariantTime(&parts, &days))
        return 0;
    return days;
}

std::string RowTimeText(std::uint64_t fileTime)
{
    char number[64];
    std::snprintf(number, sizeof number, "%.17g", RowTimeOf(fileTime));
    return number;
}

}  // namespace quorvane::host
