// quorvane3/model/storage_files.h: packages on their way to their recipients.
//
// There is one package for each recipients text, a compound file in the user's temporary folder. The engine
// fills it; the host delivers the file's bytes to the recipients and removes the package from the collection,
// after which the file is the host's.
#ifndef QUORVANE3_MODEL_STORAGE_FILES_H_
#define QUORVANE3_MODEL_STORAGE_FILES_H_

#include "quorvane3/model/identifiers.h"

// Any thread may call.
struct IStorageFile : IDispatch {
    // The text that the package was added under. Setting it makes a new, empty file.
    virtual HRESULT STDMETHODCALLTYPE get_Recipients(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Recipients(BSTR newVal) = 0;
    // Full path of the file.
    virtual HRESULT STDMETHODCALLTYPE get_Path(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Path(BSTR newVal) = 0;
    // A mark of the host's, kept in the database; Lock and Unlock change it in memory only.
    virtual HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL newVal) = 0;
    // A new, empty storage (IStorage, as VT_UNKNOWN) for a folder's or an item's data, in place of an older
    // one of that ID. The file is open until Unlock. A damaged file is deleted, and the call fails.
    virtual HRESULT STDMETHODCALLTYPE OpenFolder(BSTR ID, VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenItem(BSTR ID, VARIANT* pVal) = 0;
    // Forgets the package; the file stays. Use IStorageFiles::Remove, which also takes it off the list.
    virtual HRESULT STDMETHODCALLTYPE Delete() = 0;
    // Ends a turn at the file and closes it. S_OK.
    virtual HRESULT STDMETHODCALLTYPE Unlock() = 0;
    // Begins a turn at the file: waits until no one else has one, for 10 seconds at most, and goes on then
    // all the same.
    virtual HRESULT STDMETHODCALLTYPE Lock() = 0;
};

// The packages in the order of their recipients texts. Any thread may call.
struct IStorageFiles : IDispatch {
    // An enumerator (IEnumVARIANT) over the packages that there are now, as VT_DISPATCH.
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    // The package of a recipients text (VT_BSTR) or of a place from 1 on, as VT_DISPATCH (IStorageFile).
    // E_FAIL: no such text, or a place past the end. E_INVALIDARG: a place below 1.
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
    // A new package. E_FAIL: the text has one. Others: the file or its row can't be made.
    virtual HRESULT STDMETHODCALLTYPE Add(BSTR Recipients, IStorageFile** pVal) = 0;
    // Takes a package off the list, by its text or its place; waits for a turn at it first. The file stays
    // and is the caller's. E_FAIL: no such text. E_INVALIDARG: no such place.
    virtual HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) = 0;
};

QUORVANE_IID(IStorageFiles, IID_IStorageFiles);
QUORVANE_IID(IStorageFile, IID_IStorageFile);

#endif  // QUORVANE3_MODEL_STORAGE_FILES_H_
