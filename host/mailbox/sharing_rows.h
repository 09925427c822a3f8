// host/mailbox/sharing_rows.h: the rows of the sharing database that tell which message stands for which
// sharing ID.
#ifndef QUORVANE_HOST_MAILBOX_SHARING_ROWS_H_
#define QUORVANE_HOST_MAILBOX_SHARING_ROWS_H_

#include <string>
#include <unordered_map>

#include "host/mailbox/mailbox.h"

namespace quorvane::host {

struct SharingRow {
    std::string id;
    std::string entryId;
    std::string storeId;
    double lastModified = 0;  // days since 30 December 1899, as the engine wrote it
};

// All rows, by entry identifier. Throws a HostError.
std::unordered_map<std::string, SharingRow> ReadSharingRows(const Mailbox& mailbox);

// A FILETIME as the engine writes it into a row: whole seconds, in days since 30 December 1899.
double RowTimeOf(std::uint64_t fileTime) noexcept;
// The same as text that reads as that very number.
std::string RowTimeText(std::uint64_t fileTime);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_SHARING_ROWS_H_
