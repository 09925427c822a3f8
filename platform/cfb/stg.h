// platform/cfb/stg.h: the functions that make and open compound files, under their published names.
//
// On Windows this is the SDK's header, and the functions are the system's. Elsewhere they are this
// library's; the classes behind them are reachable on both platforms through platform/cfb/docfile.h.
#ifndef QUORVANE_PLATFORM_CFB_STG_H_
#define QUORVANE_PLATFORM_CFB_STG_H_

#include "platform/com/com.h"

#ifndef _WIN32

// A new storage below the root lands in the file when it is released or committed (see storage_object.h).
//
// All of these: any thread may call; direct mode only (STGM_TRANSACTED, STGM_CONVERT, STGM_PRIORITY and
// STGM_DELETEONRELEASE give STG_E_INVALIDFLAG); out-parameters are null after a failure.

// Makes a compound file and opens its root storage for reading and writing.
//
// path      [in]   the file, not null.
// mode      [in]   STGM_READWRITE | STGM_SHARE_EXCLUSIVE, with STGM_CREATE to replace a file that exists.
// reserved  [in]   0.
// storage   [out]  the root storage, the caller's.
//
// STG_E_FILEALREADYEXISTS  the file exists and STGM_CREATE isn't given.
// STG_E_SHAREVIOLATION     another open of the file excludes this one.
// STG_E_PATHNOTFOUND, STG_E_ACCESSDENIED, STG_E_MEDIUMFULL, STG_E_WRITEFAULT: as the system says.
// STG_E_INVALIDNAME, STG_E_INVALIDPOINTER, STG_E_INVALIDFLAG: wrong arguments.
STDAPI StgCreateDocfile(LPCOLESTR path, DWORD mode, DWORD reserved, IStorage** storage);

// Opens the root storage of a compound file.
//
// path      [in]   the file, not null.
// priority  [in]   null.
// mode      [in]   STGM_READ or STGM_READWRITE, with STGM_SHARE_EXCLUSIVE; STGM_READ also with
//                  STGM_SHARE_DENY_WRITE.
// exclude   [in]   null.
// reserved  [in]   0.
// storage   [out]  the root storage, the caller's.
//
// STG_E_FILENOTFOUND, STG_E_PATHNOTFOUND  there is no such file or directory.
// STG_E_FILEALREADYEXISTS                 the file isn't a compound file.
// STG_E_SHAREVIOLATION                    another open of the file excludes this one.
// STG_E_INVALIDHEADER, STG_E_DOCFILECORRUPT  it began as a compound file and can't be read as one.
STDAPI StgOpenStorage(LPCOLESTR path, IStorage* priority, DWORD mode, SNB exclude, DWORD reserved,
                      IStorage** storage);

// S_OK for a compound file, S_FALSE for any other; STG_E_FILENOTFOUND, STG_E_ACCESSDENIED.
STDAPI StgIsStorageFile(LPCOLESTR path);

// The same on an array of bytes, which the storage holds a reference to.
STDAPI StgCreateDocfileOnILockBytes(ILockBytes* bytes, DWORD mode, DWORD reserved, IStorage** storage);
STDAPI StgOpenStorageOnILockBytes(ILockBytes* bytes, IStorage* priority, DWORD mode, SNB exclude,
                                  DWORD reserved, IStorage** storage);
STDAPI StgIsStorageILockBytes(ILockBytes* bytes);

// An array of bytes in memory of its own. Off Windows memory is null and deleteOnRelease is true.
STDAPI CreateILockBytesOnHGlobal(HGLOBAL memory, BOOL deleteOnRelease, ILockBytes** bytes);

#endif

#endif  // QUORVANE_PLATFORM_CFB_STG_H_
