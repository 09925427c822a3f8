// quorvane3/object_model.h: the catalogue: the interfaces, enumerations and classes of the library
// `quorvane3`.
//
//   ILibrary           the one object that a host creates; its Logon takes the host's IQuorvaneExt and gives
//   ISession2          the session, from which come
//     IFolders         the shared folders:          IFolder, IItem
//     IStorageFiles    the packages for delivery:   IStorageFile
//     IOptions         named values:                IOption
//
// Every interface but the host's is dual: its operations stand behind IDispatch's seven slots, in the order
// of declaration, and are bound late by the dispatch identifiers of the library.
//
// For all of them: text is BSTR; an [in] text is the caller's, an [out] text is a copy that the caller frees.
// An [out] object is one reference, the caller's. An optional argument is a VARIANT; of type VT_ERROR
// (Variant::Missing) when it is left out. Identifiers of MAPI are hexadecimal text, two digits a byte.
// E_POINTER answers a missing place for a result, E_OUTOFMEMORY a lack of memory, wherever either can be; the
// comments name the other codes. Every failure is also in the trace log, one line for each call that it
// passed.
#ifndef QUORVANE3_OBJECT_MODEL_H_
#define QUORVANE3_OBJECT_MODEL_H_

#include "quorvane3/model/folders.h"
#include "quorvane3/model/host.h"
#include "quorvane3/model/identifiers.h"
#include "quorvane3/model/item.h"
#include "quorvane3/model/options.h"
#include "quorvane3/model/session.h"
#include "quorvane3/model/storage_files.h"

// Watches a whole message store. No operation of the library gives one.
struct IMsgStores : IDispatch {
    // pMsgStore  [in]  answers IMsgStore. S_OK, and nothing happens, with "NoListeners" set.
    virtual HRESULT STDMETHODCALLTYPE Add(IUnknown* pMsgStore) = 0;
};

// These have no operations of their own.
struct IMyAdviseSink : IDispatch {};
struct IMDBImport : IDispatch {};

QUORVANE_IID(IMsgStores, IID_IMsgStores);
QUORVANE_IID(IMyAdviseSink, IID_IMyAdviseSink);
QUORVANE_IID(IMDBImport, IID_IMDBImport);

#endif  // QUORVANE3_OBJECT_MODEL_H_
