// quorvane3/model/host.h: what a host implements: its callbacks.
//
// The interfaces are dispatch-only: they carry no slots of their own, and the engine calls them through
// IDispatch::Invoke by the identifiers below. callbacks.h offers bases from which a C++ host derives instead.
#ifndef QUORVANE3_MODEL_HOST_H_
#define QUORVANE3_MODEL_HOST_H_

#include "quorvane3/model/identifiers.h"

// The host itself, given to ILibrary::Logon.
//
// Threads: an object that is handed to Logon on a thread which called CoInitialize is called on that thread,
// while it pumps (platform/com/apartment.h); any other is called on the engine's threads, several at once.
// Arguments are borrowed for the call. `ignoreEvent` comes in as VARIANT_FALSE; any value but 0 coming out
// keeps the engine from acting on the event. A failure counts as one of the step in which the engine called.
struct IQuorvaneExt : IDispatch {};

// Restricts the rows that a resend (IFolder::ResendEx) looks at.
struct IQuorvaneRestrict : IDispatch {};

// Hears how far a resend (IFolder::Resend, ResendEx) is.
struct IQuorvaneProgress : IDispatch {};

namespace quorvane {

// The operations of IQuorvaneExt.
enum ExtDispid : LONG {
    // onItemResend(IItem* Item, BSTR JobID, [in,out] VARIANT_BOOL* ignoreEvent)
    // An item of a resend is about to be sent. JobID is null for a ResendEx without one. When it is ignored,
    // it isn't sent, and counts as known all the same.
    kOnItemResend = 1,
    // onFolderReceived(IFolder* Folder, BSTR Tag)
    // A received package announces a folder: its ID and CustomInfo. The object is in no collection; a host
    // that takes part adds a folder of its own under that ID. Tag is ProcessStorageFile's.
    kOnFolderReceived = 2,
    // onItemAdded, onItemChanged, onItemDeleted(IItem* Item, [in,out] VARIANT_BOOL* ignoreEvent)
    // A shared folder changed. Unless it is ignored, the item is sent to the folder's usual members: into the
    // package whose recipients text is the folder's EntryID. A deleted item has no message.
    kOnItemAdded = 3,
    kOnItemChanged = 4,
    kOnItemDeleted = 5,
    // onItemReceived(IItem* Item, BSTR Tag, [in,out] VARIANT_BOOL* ignoreEvent)
    // An item of a received package is about to be applied to its folder; an item without a message is a
    // deletion. When it is ignored, or the call fails, it isn't applied. Called on a new thread each time;
    // the
    // end of a session doesn't wait for its return.
    kOnItemReceived = 7,
    // onPostprocess(BSTR ItemID, BSTR StoreID)
    // A received item was written to its store. ItemID is its entry identifier. A failure is traced only.
    kOnPostprocess = 8,
    // DatabasePath (get) BSTR
    // Full path of the sharing database, asked for at logon. The host makes the file, with the tables of
    // sharing_schema.sql.
    kDatabasePath = 9,
    // ProductCode (get) BSTR
    // Keeps the settings of several hosts apart: part of the name of the registry key with the log's
    // settings.
    kProductCode = 10,
};

// The operation of IQuorvaneRestrict.
enum RestrictDispid : LONG {
    // RestrictTable(IDispatch* Table)
    // Table answers IItemsCol, whose RawTable is the folder's contents table: restrict it there.
    kRestrictTable = 1,
};

// The operations of IQuorvaneProgress.
enum ProgressDispid : LONG {
    // SetLimits(long Min, long Max)
    // Once a job, unless it has nothing to do: 0 and the number of its items.
    kSetLimits = 1,
    // Progress(long Count, long Total)
    // One more item is done. A job has ended when Count reaches Total. Failures are ignored.
    kProgress = 2,
};

// Outgoing events of a folder: declared, with a connection point; nothing fires them.
enum FolderEventsDispid : LONG { kResendComplete = 1 };

}  // namespace quorvane

QUORVANE_IID(IQuorvaneExt, DIID_IQuorvaneExt);
QUORVANE_IID(IQuorvaneRestrict, DIID_IQuorvaneRestrict);
QUORVANE_IID(IQuorvaneProgress, DIID_IQuorvaneProgress);

#endif  // QUORVANE3_MODEL_HOST_H_
