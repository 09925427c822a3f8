// quorvane3/model/session.h: the library, which a host creates, and the session, which it gets at logon.
#ifndef QUORVANE3_MODEL_SESSION_H_
#define QUORVANE3_MODEL_SESSION_H_

#include "quorvane3/model/host.h"

struct IFolders;
struct IItem;
struct IOptions;
struct ISession2;
struct IStorageFiles;

// The one class that a host creates (CLSID_Library; CreateLibrary in library.h).
//
// The last Release of the library, once nobody holds its session, ends the session: it stops the jobs, waits
// for those under way, and then lets go of the host's callbacks. So neither the library nor the session is
// released for the last time from within a callback.
struct ILibrary : IDispatch {
    // Starts the engine for the default MAPI profile of the user: callbacks, trace log, MAPI, jobs, the
    // sharing database (an old one is upgraded).
    //
    // Addin    [in]   the host's callbacks; the engine keeps a reference until the session ends.
    // Session  [out]  the caller's; null after a failure.
    //
    // What failed on the way: E_FAIL, no MAPI library was found; MAPILogonEx's codes; a failure of
    // DatabasePath or of opening the database; E_POINTER, no place or no host. After a failure nothing stays
    // behind but the trace log, and Logon may be called again. A second Logon after a success starts a second
    // session; the first one runs on until the process ends.
    virtual HRESULT STDMETHODCALLTYPE Logon(IQuorvaneExt* Addin, ISession2** Session) = 0;
    // The session. DISP_E_EXCEPTION, with the text "Please login first.": there is none.
    virtual HRESULT STDMETHODCALLTYPE get_Session(ISession2** pVal) = 0;
    // These do nothing: S_OK.
    virtual HRESULT STDMETHODCALLTYPE ForceLogoff() = 0;
    virtual HRESULT STDMETHODCALLTYPE Test() = 0;
};

// A logon. Any thread may call. Every object that comes from it, directly or not, may be called only while it
// lives.
struct ISession2 : IDispatch {
    // The shared folders: one collection for the session.
    virtual HRESULT STDMETHODCALLTYPE get_Folders(IFolders** pVal) = 0;
    // The packages that wait for delivery: one collection for the session. At the first call it is read from
    // the database; packages whose files are gone are dropped.
    virtual HRESULT STDMETHODCALLTYPE get_StorageFiles(IStorageFiles** pVal) = 0;

    // Notes a received package and queues it. It is taken apart in the background, one package at a time:
    // each folder is shown to onFolderReceived, each item to onItemReceived, and each item that isn't ignored
    // is applied. What is done vanishes from the file; at the end the file is deleted, with whatever failed.
    //
    // Path  [in]  the file, which is the engine's from now on.
    // Tag   [in]  handed to the callbacks.
    //
    // The failure of opening the database or of queueing. A failure to note the package is traced only.
    virtual HRESULT STDMETHODCALLTYPE ProcessStorageFile(BSTR Path, BSTR Tag) = 0;
    // Queues the received packages that an earlier run left unfinished. Called once, after the folders were
    // added. Only qv_rs_Both does anything.
    virtual HRESULT STDMETHODCALLTYPE ResumeJobs(LONG Flags) = 0;

    // Says that the next changes of an item are the host's own: no event is raised for them. With AutoUnlock
    // VARIANT_TRUE (the default when bound late) the first one ends the lock, otherwise UnlockItem does. A
    // lock that stands already stays as it was. S_OK.
    virtual HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) = 0;
    // ItemID is the entry identifier. E_FAIL: there is no such lock.
    virtual HRESULT STDMETHODCALLTYPE UnlockItem(BSTR ItemID, BSTR StoreID) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsItemLocked(BSTR EntryID, BSTR StoreID, VARIANT_BOOL* rVal) = 0;
    // Ends a lock that was made with AutoUnlock VARIANT_TRUE, if there is one. S_OK.
    virtual HRESULT STDMETHODCALLTYPE DropLock(BSTR EntryID, BSTR StoreID) = 0;

    // The item that the database knows under a sharing ID, or under an entry identifier; each a text, or left
    // out. Given both, the entry identifier decides. StoreID isn't used.
    //
    // DISP_E_MEMBERNOTFOUND: there is no such row, or the ID has 50 characters or more. E_INVALIDARG: neither
    // is a text. An item whose message or folder isn't there is still given.
    virtual HRESULT STDMETHODCALLTYPE GetItemFromID(VARIANT ID, VARIANT EntryID, VARIANT StoreID,
                                                    IItem** pVal) = 0;
    // Makes an item known under a sharing ID, as modified now. E_INVALIDARG: a text is too long (ID more than
    // 49 bytes, EntryID 254, StoreID 1023). Others: the database's, as when the ID is known already.
    virtual HRESULT STDMETHODCALLTYPE ImportItem(BSTR ID, BSTR EntryID, BSTR StoreID) = 0;
    // Asks all resend jobs to end, without waiting for them, and forgets what was noted of them. ID isn't
    // used.
    virtual HRESULT STDMETHODCALLTYPE CancelResend(VARIANT ID) = 0;
    // The session's options (options.h).
    virtual HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) = 0;
    // The path that the host's DatabasePath gave.
    virtual HRESULT STDMETHODCALLTYPE get_DBPath(BSTR* pVal) = 0;
    // Removes an item's row from the database; no message. S_OK also when there is none.
    virtual HRESULT STDMETHODCALLTYPE DeleteItem(BSTR ID) = 0;
    // The MAPI session (IMAPISession). E_HANDLE: there is none.
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
};

QUORVANE_IID(ILibrary, IID_ILibrary);
QUORVANE_IID(ISession2, IID_ISession2);

#endif  // QUORVANE3_MODEL_SESSION_H_
