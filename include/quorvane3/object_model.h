// quorvane3/object_model.h: the interfaces, enumerations and classes of the library `quorvane3`.
//
// Every interface here is dual: its operations stand behind IDispatch's seven slots, in the order of
// declaration, and are bound late by the dispatch identifiers of the library. Text is BSTR: an [in]
// text is the caller's, an [out] text is a copy that the caller frees. An optional argument is a VARIANT
// of type VT_ERROR when it's left out. A child object may be called only while its session lives.
#ifndef QUORVANE3_OBJECT_MODEL_H_
#define QUORVANE3_OBJECT_MODEL_H_

#include "platform/com/com.h"
#include "platform/com/iid.h"

enum qv_Action : LONG {
    qv_ac_NoAction = 0,
    qv_ac_Added = 10,
    qv_ac_Modified = 20,
    qv_ac_Deleted = 30,
};

enum qv_Resume : LONG {
    qv_rs_Both = 0,
    qv_rs_Resend = 1,
    qv_rs_Receive = 2,
};

#define QUORVANE3_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    inline constexpr GUID name { l, w1, w2, { b1, b2, b3, b4, b5, b6, b7, b8 } }

QUORVANE3_GUID(LIBID_quorvane3, 0x8044D363, 0x2CD8, 0x43A6, 0x9C, 0x54, 0xEE, 0xFE, 0xAB, 0x46, 0x7F, 0xD3);

QUORVANE3_GUID(IID_ILibrary, 0x9F803347, 0x6C7B, 0x49A8, 0x94, 0x98, 0x77, 0xDE, 0xBF, 0xB6, 0x5E, 0xFA);
QUORVANE3_GUID(IID_ISession2, 0xA35E8F58, 0x997A, 0x4893, 0x99, 0x59, 0x93, 0xBC, 0x58, 0x9B, 0x9C, 0x05);
QUORVANE3_GUID(IID_IFolders, 0x05DD14CA, 0xFEC9, 0x4E06, 0x93, 0x02, 0xE7, 0x53, 0xC4, 0xD1, 0xE8, 0x71);
QUORVANE3_GUID(IID_IFolder, 0xE0913204, 0x6BEE, 0x44F0, 0x81, 0xF7, 0x87, 0xFD, 0xE3, 0x2F, 0x97, 0x67);
QUORVANE3_GUID(IID_IItem, 0x218C6102, 0x441C, 0x4262, 0x93, 0x7D, 0x66, 0x58, 0xD2, 0xED, 0xBF, 0x85);
QUORVANE3_GUID(IID_IStorageFiles, 0x318560D5, 0x8A5D, 0x46A9, 0x90, 0x11, 0x22, 0xA8, 0x77, 0x41, 0x5C, 0x82);
QUORVANE3_GUID(IID_IStorageFile, 0xFAC76F25, 0xB179, 0x452A, 0x8D, 0x50, 0x09, 0x43, 0x9A, 0xFE, 0xA2, 0xDF);
QUORVANE3_GUID(IID_IOptions, 0x72F55042, 0x1212, 0x4E9A, 0xB3, 0x90, 0xFC, 0xCD, 0xB2, 0xFA, 0xE8, 0xBF);
QUORVANE3_GUID(IID_IOption, 0xFBCAEF0A, 0xA0E1, 0x46DF, 0x8F, 0xD3, 0xD1, 0xD1, 0x47, 0x85, 0x79, 0x24);
QUORVANE3_GUID(IID_IMsgStores, 0xB5945868, 0x0D13, 0x4FFA, 0x95, 0xDF, 0xD3, 0x8A, 0x68, 0x89, 0xFF, 0x22);
QUORVANE3_GUID(IID_IItemsCol, 0x59F37BDF, 0x6106, 0x44DE, 0xA7, 0x24, 0x02, 0xA8, 0xCE, 0x49, 0xD5, 0x0B);
QUORVANE3_GUID(IID_IMyAdviseSink, 0xE37D78F2, 0xC26E, 0x4EC9, 0xA4, 0x55, 0xD5, 0x14, 0x09, 0xB5, 0x7B, 0x41);
QUORVANE3_GUID(IID_IMDBImport, 0x05AF0E84, 0x2B09, 0x4F54, 0x99, 0xB1, 0xD3, 0x38, 0xBC, 0xF3, 0xC2, 0x2B);

// Dispatch-only: the host's callbacks and the outgoing events.
QUORVANE3_GUID(DIID_IQuorvaneExt, 0x8673F214, 0xAE1D, 0x4297, 0xBD, 0xD9, 0xA4, 0x18, 0xB8, 0x28, 0x3F, 0xF2);
QUORVANE3_GUID(DIID_IQuorvaneRestrict, 0x6505EFC4, 0xDEFF, 0x4F3C, 0xB9, 0xF8, 0xEE, 0xAA, 0x81, 0x35, 0xAD, 0x56);
QUORVANE3_GUID(DIID_IQuorvaneProgress, 0x9E908752, 0x6F3D, 0x4662, 0xB6, 0xB2, 0xF0, 0x26, 0xFE, 0xCC, 0x38, 0xDB);
QUORVANE3_GUID(DIID__IFolderEvents, 0x1992FBD9, 0xAC6A, 0x426C, 0xAC, 0x58, 0x93, 0xA7, 0xA7, 0xFE, 0x2B, 0x2F);
QUORVANE3_GUID(DIID__ISession2Events, 0xE57FD71F, 0xC6C3, 0x45C3, 0x99, 0xB1, 0x43, 0x21, 0x4D, 0x0E, 0xA3, 0x1C);
QUORVANE3_GUID(DIID__IMsgStoresEvents, 0x61753FCF, 0xE6A7, 0x4E87, 0x81, 0x48, 0x28, 0x3F, 0xF4, 0xD4, 0xA3, 0x04);

QUORVANE3_GUID(CLSID_Library, 0xB95EEE80, 0xC751, 0x4B04, 0x9B, 0x50, 0xD5, 0x54, 0xC6, 0x0F, 0x13, 0x72);
QUORVANE3_GUID(CLSID_Session2, 0xE4842466, 0x2F16, 0x4BAE, 0x93, 0x8A, 0x6A, 0x7C, 0x75, 0x05, 0xDA, 0x1C);
QUORVANE3_GUID(CLSID_Folders, 0xCEF09FB9, 0xA088, 0x45AD, 0x93, 0x31, 0x87, 0x47, 0xCD, 0x83, 0x10, 0x06);
QUORVANE3_GUID(CLSID_Folder, 0xBF74D3FF, 0x861E, 0x463E, 0x9F, 0x0D, 0x79, 0x62, 0xB3, 0x5D, 0x16, 0x6B);
QUORVANE3_GUID(CLSID_Item, 0x8C188D8C, 0xDBEF, 0x4C7F, 0xB8, 0xD4, 0x5E, 0xEB, 0x32, 0xBF, 0xB8, 0x5B);
QUORVANE3_GUID(CLSID_StorageFiles, 0x232CF63E, 0x66B6, 0x4BEF, 0x81, 0x65, 0x8C, 0xCB, 0x7F, 0xD1, 0xE0, 0x80);
QUORVANE3_GUID(CLSID_StorageFile, 0xB1BE7F65, 0xA0DC, 0x40A0, 0xA5, 0x9E, 0x60, 0x40, 0x1C, 0xC2, 0x1F, 0x08);
QUORVANE3_GUID(CLSID_MsgStores, 0xBC7F725E, 0x67E6, 0x4D82, 0x80, 0xF4, 0xD5, 0xBB, 0x36, 0x1F, 0xCB, 0x5C);
QUORVANE3_GUID(CLSID_AdviseSink, 0x242AEB34, 0x118D, 0x409F, 0xA4, 0x43, 0x44, 0xC6, 0xD6, 0xA3, 0xB6, 0xCC);
QUORVANE3_GUID(CLSID_Options, 0xAE5F101F, 0xF720, 0x4DB6, 0xBC, 0xBF, 0xC2, 0x73, 0x4F, 0x59, 0x98, 0x2C);
QUORVANE3_GUID(CLSID_Option, 0x86FBC62D, 0x52F9, 0x40B6, 0x83, 0x45, 0x89, 0x8C, 0xB9, 0x3F, 0xD6, 0x37);
QUORVANE3_GUID(CLSID_MDBImport, 0xC2AF14F2, 0xECFE, 0x49AF, 0xB5, 0x4A, 0x66, 0x0F, 0x86, 0x14, 0xC7, 0x88);
QUORVANE3_GUID(CLSID_ItemsCol, 0x3B8E5542, 0xB96E, 0x479B, 0x86, 0xC8, 0x56, 0x1D, 0x29, 0x76, 0x5B, 0x81);

// The host's callback interfaces carry no slots of their own: the engine calls them through Invoke, by
// the identifiers below. quorvane3/callbacks.h offers bases that a C++ host derives from.
struct IQuorvaneExt : IDispatch {};
struct IQuorvaneRestrict : IDispatch {};
struct IQuorvaneProgress : IDispatch {};

namespace quorvane {

enum ExtDispid : LONG {
    kOnItemResend = 1,      // (IItem* Item, BSTR JobID, [in,out] VARIANT_BOOL* ignoreEvent)
    kOnFolderReceived = 2,  // (IFolder* Folder, BSTR Tag)
    kOnItemAdded = 3,       // (IItem* Item, [in,out] VARIANT_BOOL* ignoreEvent)
    kOnItemChanged = 4,     // (IItem* Item, [in,out] VARIANT_BOOL* ignoreEvent)
    kOnItemDeleted = 5,     // (IItem* Item, [in,out] VARIANT_BOOL* ignoreEvent)
    kOnItemReceived = 7,    // (IItem* Item, BSTR Tag, [in,out] VARIANT_BOOL* ignoreEvent)
    kOnPostprocess = 8,     // (BSTR ItemID, BSTR StoreID)
    kDatabasePath = 9,      // (get) BSTR
    kProductCode = 10,      // (get) BSTR
};

enum RestrictDispid : LONG { kRestrictTable = 1 };              // (IDispatch* Table)
enum ProgressDispid : LONG { kSetLimits = 1, kProgress = 2 };   // (long Min, long Max); (long Count, long Total)
enum FolderEventsDispid : LONG { kResendComplete = 1 };         // declared; nothing fires it

}  // namespace quorvane

struct IFolder;
struct IFolders;
struct IItem;
struct IOptions;
struct ISession2;
struct IStorageFiles;

struct ILibrary : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE Logon(IQuorvaneExt* Addin, ISession2** Session) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Session(ISession2** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE ForceLogoff() = 0;
    virtual HRESULT STDMETHODCALLTYPE Test() = 0;
};

struct ISession2 : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Folders(IFolders** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StorageFiles(IStorageFiles** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE ProcessStorageFile(BSTR Path, BSTR Tag) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResumeJobs(LONG Flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockItem(BSTR ItemID, BSTR StoreID) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsItemLocked(BSTR EntryID, BSTR StoreID, VARIANT_BOOL* rVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE DropLock(BSTR EntryID, BSTR StoreID) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemFromID(VARIANT ID, VARIANT EntryID, VARIANT StoreID, IItem** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE ImportItem(BSTR ID, BSTR EntryID, BSTR StoreID) = 0;
    virtual HRESULT STDMETHODCALLTYPE CancelResend(VARIANT ID) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DBPath(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteItem(BSTR ID) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
};

struct IFolders : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Add(BSTR EntryID, BSTR StoreID, VARIANT ID, VARIANT ProgressBar,
                                          IFolder** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) = 0;
    virtual HRESULT STDMETHODCALLTYPE Find(VARIANT ID, VARIANT EntryID, VARIANT StoreID, IFolder** pVal) = 0;
};

struct IFolder : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Resend(BSTR Recipients, VARIANT JobID, VARIANT resendAll,
                                             VARIANT ProgressBar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_StoreID(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Send(VARIANT Recipients) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Validate() = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateItem(VARIANT Stream, VARIANT ID, IItem** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStore(ULONG Flags, IUnknown** pStore) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResendEx(BSTR Recipients, IQuorvaneRestrict* Restriction, VARIANT resendAll,
                                               VARIANT JobID, VARIANT ProgressBar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict* newVal) = 0;
};

struct IItem : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ExcludedProperties(SAFEARRAY** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ExcludedProperties(SAFEARRAY** newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Folder(IFolder** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Raw(IUnknown* newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Send(BSTR Recipients) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperty(VARIANT PropTag, VARIANT* Value) = 0;
    virtual HRESULT STDMETHODCALLTYPE Submit() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Action(qv_Action* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Action(qv_Action newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteProperty(VARIANT PropertyTag) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveToFile(BSTR FileName) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Stream(VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Stream(VARIANT newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Display(VARIANT_BOOL Modal, LONG Parent) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_UnRead(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_UnRead(VARIANT_BOOL newVal) = 0;
};

struct IStorageFile : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Recipients(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Recipients(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Path(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Path(BSTR newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenFolder(BSTR ID, VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenItem(BSTR ID, VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Delete() = 0;
    virtual HRESULT STDMETHODCALLTYPE Unlock() = 0;
    virtual HRESULT STDMETHODCALLTYPE Lock() = 0;
};

struct IStorageFiles : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Add(BSTR Recipients, IStorageFile** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) = 0;
};

struct IOptions : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
};

struct IOption : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Name(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Value(VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Value(VARIANT newVal) = 0;
};

struct IMsgStores : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE Add(IUnknown* pMsgStore) = 0;
};

struct IItemsCol : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_RawTable(IUnknown** pVal) = 0;
};

struct IMyAdviseSink : IDispatch {};
struct IMDBImport : IDispatch {};

QUORVANE_IID(ILibrary, IID_ILibrary);
QUORVANE_IID(ISession2, IID_ISession2);
QUORVANE_IID(IFolders, IID_IFolders);
QUORVANE_IID(IFolder, IID_IFolder);
QUORVANE_IID(IItem, IID_IItem);
QUORVANE_IID(IStorageFiles, IID_IStorageFiles);
QUORVANE_IID(IStorageFile, IID_IStorageFile);
QUORVANE_IID(IOptions, IID_IOptions);
QUORVANE_IID(IOption, IID_IOption);
QUORVANE_IID(IMsgStores, IID_IMsgStores);
QUORVANE_IID(IItemsCol, IID_IItemsCol);
QUORVANE_IID(IMyAdviseSink, IID_IMyAdviseSink);
QUORVANE_IID(IMDBImport, IID_IMDBImport);
QUORVANE_IID(IQuorvaneExt, DIID_IQuorvaneExt);
QUORVANE_IID(IQuorvaneRestrict, DIID_IQuorvaneRestrict);
QUORVANE_IID(IQuorvaneProgress, DIID_IQuorvaneProgress);

#endif  // QUORVANE3_OBJECT_MODEL_H_
