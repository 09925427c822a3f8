// host/mailbox/hash_records.h: a hash file of the engine as anybody may read it (docs/hash-file.md).
#ifndef QUORVANE_HOST_MAILBOX_HASH_RECORDS_H_
#define QUORVANE_HOST_MAILBOX_HASH_RECORDS_H_

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quorvane::host {

// One record: its key, an entry identifier in hexadecimal text, and the bytes that it has in the file.
struct HashRecordBytes {
    std::string key;
    std::string bytes;
};

// The records in their order, outdated ones included, up to the first damage.
struct HashFileContent {
    std::vector<HashRecordBytes> records;
    std::size_t damagedBytes = 0;  // behind the last whole record
};

// Takes bytes apart; nothing is refused.
HashFileContent ReadHashRecords(const std::string& bytes);

// The file's content. Throws a HostError.
HashFileContent ReadHashFile(const std::filesystem::path& path);

// Writes the file anew with the records whose key is wanted, flushed. While no engine has it open. Throws a
// HostError.
void WriteHashFile(const std::filesystem::path& path, const HashFileContent& content,
                   const std::function<bool(const std::string& key)>& isWanted);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_HASH_RECORDS_H_
