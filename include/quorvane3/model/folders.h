// quorvane3/model/folders.h: the shared folders.
//
// A folder has two identities: where it lies here (EntryID in StoreID) and what it is called among its
// members (ID). Packages carry the ID alone. After a restart the host adds its folders again, under the same
// IDs.
#ifndef QUORVANE3_MODEL_FOLDERS_H_
#define QUORVANE3_MODEL_FOLDERS_H_

#include "quorvane3/model/host.h"

struct IFolder;
struct IItem;
struct IOptions;

// The session's folders in the order of their entry identifiers' texts. Any thread may call.
struct IFolders : IDispatch {
    // An enumerator (IEnumVARIANT) over the folders that there are now, as VT_DISPATCH.
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    // The folder of an entry identifier (VT_BSTR, hexadecimal), compared as MAPI compares them, as
    // VT_DISPATCH. E_FAIL: there is none, or the text isn't hexadecimal. A number is looked up as the text of
    // its digits, which finds nothing: use the enumerator.
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
    // Shares a folder, and watches it from now on (unless "NoListeners" is set).
    //
    // EntryID, StoreID  [in]   the folder and its store, in hexadecimal text.
    // ID                [in]   the sharing ID; a new GUID's text if left out.
    // ProgressBar       [in]   not used.
    // pVal              [out]  the folder; null after a failure, and nothing was added.
    //
    // E_FAIL: that very text was added before. DISP_E_EXCEPTION, with the text "Folder already exists":
    // another folder has this ID. Others: the store or folder can't be opened.
    virtual HRESULT STDMETHODCALLTYPE Add(BSTR EntryID, BSTR StoreID, VARIANT ID, VARIANT ProgressBar,
                                          IFolder** pVal) = 0;
    // Stops sharing a folder: its entry identifier in the very text of Add, or its place from 1 on. Its hash
    // file and its items' rows stay. E_FAIL: no such text. E_INVALIDARG: no such place.
    virtual HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) = 0;
    // The first folder with this ID, or with this very entry identifier; each a text, or left out. StoreID
    // isn't used. DISP_E_MEMBERNOTFOUND: there is none.
    virtual HRESULT STDMETHODCALLTYPE Find(VARIANT ID, VARIANT EntryID, VARIANT StoreID, IFolder** pVal) = 0;
};

// Any thread may call. Getters give copies.
struct IFolder : IDispatch {
    // Where the folder lies, in hexadecimal text. Setting it opens the folder and watches it; StoreID and ID
    // are set before. E_POINTER: no StoreID. Others: it can't be opened; the new text stays.
    virtual HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) = 0;
    // The MAPI folder (IMAPIFolder), opened anew at each call, for reading. E_POINTER: EntryID or StoreID is
    // empty.
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
    // A text of the host's own, which travels with an announcement.
    virtual HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) = 0;
    // Queues a job that sends the folder's items to the package of some recipients, in the background: every
    // one with resendAll true, otherwise those that changed since they were last seen. The host is asked
    // about each (onItemResend). Items that are gone are told to the folder's usual members (onItemDeleted).
    // At most two jobs run at the same time; a job isn't taken up again by a later session.
    //
    // Recipients   [in]  the package's recipients text.
    // JobID        [in]  a text for onItemResend; left out, or no text: a new GUID's.
    // resendAll    [in]  left out: false.
    // ProgressBar  [in]  an object that answers IQuorvaneProgress, or left out. Called as the host itself is:
    //                    on the thread of this call, when that called CoInitialize.
    //
    // S_OK: the job is queued; its failures are in the log alone, and nobody is told of its end but by the
    // progress. E_INVALIDARG: a text is too long (JobID and the folder's ID 49 bytes, Recipients 1023).
    // E_NOINTERFACE: ProgressBar is another object. Others: the database's, or the store doesn't open.
    virtual HRESULT STDMETHODCALLTYPE Resend(BSTR Recipients, VARIANT JobID, VARIANT resendAll,
                                             VARIANT ProgressBar) = 0;
    // The store, in hexadecimal text. Setting it doesn't reopen the folder.
    virtual HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_StoreID(BSTR newVal) = 0;
    // Announces the folder (ID and CustomInfo, no items) in the package of these recipients; left out: in
    // that of the folder's usual members, whose text is the folder's EntryID. E_INVALIDARG: neither a text
    // nor left out.
    virtual HRESULT STDMETHODCALLTYPE Send(VARIANT Recipients) = 0;
    // The sharing ID. DISP_E_EXCEPTION, with the text "Folder already exists": a folder of the session has
    // it.
    virtual HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) = 0;
    // Whether store and folder can be opened now. E_POINTER: EntryID or StoreID is empty.
    virtual HRESULT STDMETHODCALLTYPE Validate() = 0;
    // An item of this folder from a stream (IItem::Stream; an empty one for a deletion), under an ID or, left
    // out, a new GUID's text. Nothing is written to the store.
    virtual HRESULT STDMETHODCALLTYPE CreateItem(VARIANT Stream, VARIANT ID, IItem** pVal) = 0;
    // Exactly VARIANT_TRUE: changes of the folder pass unnoticed.
    virtual HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL newVal) = 0;
    // The folder's options (options.h).
    virtual HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) = 0;
    // The folder's store (IMsgStore), opened anew with these MDB_* flags.
    virtual HRESULT STDMETHODCALLTYPE OpenStore(ULONG Flags, IUnknown** pStore) = 0;
    // As Resend, over the rows that Restriction leaves (null: all); but with a null JobID when it is no text,
    // and without a note of the job in the database. Restriction is called as ProgressBar is. A reference to
    // it stays counted.
    virtual HRESULT STDMETHODCALLTYPE ResendEx(BSTR Recipients, IQuorvaneRestrict* Restriction,
                                               VARIANT resendAll, VARIANT JobID, VARIANT ProgressBar) = 0;
    // A folder keeps no restriction: what is set has no effect and stays referenced, and there is none to get
    // (E_POINTER).
    virtual HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict* newVal) = 0;
};

// A contents table on its way to IQuorvaneRestrict::RestrictTable.
struct IItemsCol : IDispatch {
    // The table (IMAPITable).
    virtual HRESULT STDMETHODCALLTYPE get_RawTable(IUnknown** pVal) = 0;
};

QUORVANE_IID(IFolders, IID_IFolders);
QUORVANE_IID(IFolder, IID_IFolder);
QUORVANE_IID(IItemsCol, IID_IItemsCol);

#endif  // QUORVANE3_MODEL_FOLDERS_H_
