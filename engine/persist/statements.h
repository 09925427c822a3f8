// persist/statements.h: every statement that the engine runs on the sharing database, in the dialect of
// Access, with the widths of its parameters and the columns that are read.
//
// The question marks take their values in the order that stands beside each statement.
#ifndef QUORVANE_ENGINE_PERSIST_STATEMENTS_H_
#define QUORVANE_ENGINE_PERSIST_STATEMENTS_H_

#include "engine/persist/database.h"

namespace quorvane {

// Bytes of a text with its terminator.
namespace width {

inline constexpr ULONG kId = 50;
inline constexpr ULONG kDeletedId = 255;  // kDeleteItem, when an item runs it
inline constexpr ULONG kEntryId = 255;
inline constexpr ULONG kStoreId = 1024;
inline constexpr ULONG kRecipients = 1024;
inline constexpr ULONG kInsertedPath = 255;
inline constexpr ULONG kReadPath = 256;
inline constexpr ULONG kStatusPath = 260;
inline constexpr ULONG kDeletedFilePath = 255;
inline constexpr ULONG kReceivedPath = 255;
inline constexpr ULONG kFinishedPath = 260;  // kDeleteReceiveJob, when the job runs it
inline constexpr ULONG kTag = 255;
inline constexpr ULONG kJobId = 50;
inline constexpr ULONG kFolderId = 50;

}  // namespace width

namespace columns {

inline constexpr Column kId{ValueType::Text, width::kId};
inline constexpr Column kEntryId{ValueType::Text, width::kEntryId};
inline constexpr Column kStoreId{ValueType::Text, width::kStoreId};
inline constexpr Column kNumber{ValueType::Double, 0};

inline constexpr Column kReadItem[] = {kId, kStoreId, kNumber, kNumber};
inline constexpr Column kReadItemById[] = {kEntryId, kStoreId, kNumber, kNumber};
inline constexpr Column kLoadItem[] = {kEntryId, kStoreId, kNumber};
inline constexpr Column kReadLastModified[] = {kNumber};
inline constexpr Column kReadStorageFiles[] = {
    {ValueType::Text, width::kRecipients}, {ValueType::Text, width::kReadPath}, {ValueType::Byte, 0}};
inline constexpr Column kReadReceiveJobs[] = {{ValueType::Text, width::kReceivedPath},
                                              {ValueType::Text, width::kTag}};

}  // namespace columns

namespace statements {

// EntryID -> ID, StoreID, LastModified, Version
inline constexpr char kReadItem[] = "SELECT ID, StoreID, LastModified, Version FROM tblItem WHERE EntryID=?";
// ID -> EntryID, StoreID, LastModified, Version
inline constexpr char kReadItemById[] =
    "SELECT EntryID, StoreID, LastModified, Version FROM tblItem WHERE ID=?";
// ID -> EntryID, StoreID, LastModified
inline constexpr char kLoadItem[] = "SELECT EntryID, StoreID, LastModified FROM tblItem WHERE ID=?";
// EntryID -> LastModified
inline constexpr char kReadLastModified[] = "SELECT LastModified FROM tblItem WHERE EntryID=?";
// ID, EntryID, StoreID, LastModified
inline constexpr char kAppendItem[] =
    "INSERT INTO tblItem (ID,EntryID,StoreID, LastModified, Version) VALUES (?,?,?,?, 3.0)";
// ID, EntryID, StoreID
inline constexpr char kImportItem[] =
    "INSERT INTO tblItem (ID,EntryID,StoreID, LastModified, Version) VALUES (?,?,?, Now(), 3.0)";
// new ID, EntryID, StoreID, LastModified, old ID
inline constexpr char kUpdateItem[] =
    "UPDATE tblItem SET ID=?, EntryID=?, StoreID=?, LastModified=?, Version=3.0 WHERE ID=?";
// ID
inline constexpr char kDeleteItem[] = "DELETE * FROM tblItem WHERE ID=?";

inline constexpr char kAddVersionColumn[] = "ALTER TABLE tblItem ADD COLUMN Version NUMBER";
inline constexpr char kMarkOldItems[] = "UPDATE tblItem SET Version=2.0 WHERE Version IS NULL";

// -> Recipients, Path, Status
inline constexpr char kReadStorageFiles[] = "SELECT Recipients, Path, Status FROM tblStorageFiles";
// Recipients, Path, Status (Byte)
inline constexpr char kAddStorageFile[] =
    "INSERT INTO tblStorageFiles (Recipients,Path,Status) VALUES (?,?,?)";
// Status (Short), Path
inline constexpr char kSetStorageFileStatus[] = "UPDATE tblStorageFiles SET Status=? WHERE Path=?";
// Path
inline constexpr char kDeleteStorageFile[] = "DELETE * FROM tblStorageFiles WHERE Path=?";

// -> Path, Tag
inline constexpr char kReadReceiveJobs[] = "SELECT Path, Tag FROM tblUnfinishedReceiveJob";
// Path
inline constexpr char kDeleteReceiveJob[] = "DELETE * FROM tblUnfinishedReceiveJob WHERE Path=?";
// Path, Tag
inline constexpr char kAddReceiveJob[] = "INSERT INTO tblUnfinishedReceiveJob (Path,Tag) VALUES (?,?)";

// JobID, FolderID, Recipients
inline constexpr char kAddResendJob[] =
    "INSERT INTO tblUnfinishedResendJob (JobID, FolderID,Recipients) VALUES (?,?, ?)";
inline constexpr char kDeleteResendJobs[] = "DELETE * FROM tblUnfinishedResendJob";

}  // namespace statements
}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_STATEMENTS_H_
