// folders/folder.h: CFolder, one shared folder.
//
// A folder binds a MAPI folder (store and entry identifier) to an identity in the sharing system (ID) and
// keeps it watched: its contents table with an advise sink on it. CFolders::Add makes and configures one,
// in the order ID, StoreID, EntryID; receive processing makes one for each folder of a storage file.
//
// Threading: the fields have no lock; they are set by whoever configures the folder, before other
// threads learn of it. get_Raw and OpenStore open new objects, which stay with their caller's thread.
#ifndef QUORVANE_ENGINE_FOLDERS_FOLDER_H_
#define QUORVANE_ENGINE_FOLDERS_FOLDER_H_

#include <atomic>
#include <vector>

#include "engine/monitor/advise_sink.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/connection_point.h"
#include "platform/com/dispatch.h"
#include "platform/com/variant.h"
#include "platform/mapi/mapi.h"
#include "quorvane3/object_model.h"

// The folder's outgoing events; nothing fires them.
struct _IFolderEvents : IDispatch {};
QUORVANE_IID(_IFolderEvents, DIID__IFolderEvents);

namespace quorvane {

class CFolder
    : public ComObject<CFolder, ISupportErrorInfo, Answers<IPersistStorage, IPersist>, IPersistStreamInit,
                       ConnectionPointContainer<_IFolderEvents>, DispatchImpl<IFolder>> {
public:
    // session  [in]  the owner; not counted, and outlives the folder.
    explicit CFolder(SessionContext* session) noexcept : m_pSession(session) {}

    // Queues a job that sends the folder's items (resend_folder.h); both public forms end here.
    //
    // Recipients   [in]  whose package the items go into.
    // JobID        [in]  for onItemResend; may be null.
    // Reserved     [in]  0.0.
    // resendAll    [in]  every item goes when it changes into exactly VARIANT_TRUE; else only those that
    // differ
    //                    from the hash store.
    // ProgressBar  [in]  an object that answers IQuorvaneProgress. What doesn't change into an object, or
    // into
    //                    a null one, means none.
    // Restriction  [in]  may be null.
    //
    // S_OK: the job is queued. E_FAIL: memory is short, or the pool has no thread for it. Others: the store
    // doesn't open, or ProgressBar is another kind of object.
    virtual HRESULT Resend(BSTR Recipients, BSTR JobID, double Reserved, VARIANT resendAll,
                           VARIANT ProgressBar, IQuorvaneRestrict* Restriction) noexcept;

    // Ends the listening.
    virtual ~CFolder();

    // Resumes the resends of an earlier run. No run leaves any: does nothing and succeeds.
    [[nodiscard]] HRESULT ResumeResend(const VARIANT& progressBar) noexcept;

    // ISupportErrorInfo: S_OK for IFolder, S_FALSE for all else.
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override;

    // IPersist, IPersistStorage, IPersistStreamInit: CustomInfo and ID, in the stream "Contents".
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;
    HRESULT STDMETHODCALLTYPE IsDirty() override;
    HRESULT STDMETHODCALLTYPE InitNew(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE InitNew() override;
    HRESULT STDMETHODCALLTYPE Load(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE Load(IStream* stream) override;
    HRESULT STDMETHODCALLTYPE Save(IStorage* storage, BOOL sameAsLoad) override;
    HRESULT STDMETHODCALLTYPE Save(IStream* stream, BOOL clearDirty) override;
    HRESULT STDMETHODCALLTYPE SaveCompleted(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE HandsOffStorage() override;
    HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER* size) override;

    // IFolder.
    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) override;
    // Opens the folder and, unless the session's option "NoListeners" is true, starts to listen. E_POINTER
    // when StoreID isn't set; the field has the new value also after a failure.
    HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override;
    HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) override;
    // Writes the job's row, which nothing reads and only CancelResend removes, and queues the job; a JobID
    // that is no text becomes a new GUID's. E_INVALIDARG: a text doesn't fit its column. Others come from the
    // database (no job is queued then) or from the job's start (the row stays).
    HRESULT STDMETHODCALLTYPE Resend(BSTR Recipients, VARIANT JobID, VARIANT resendAll,
                                     VARIANT ProgressBar) override;
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_StoreID(BSTR newVal) override;
    // Announces the folder in the package of these recipients; of EntryID when the argument is left out.
    // E_INVALIDARG: neither text nor left out.
    HRESULT STDMETHODCALLTYPE Send(VARIANT Recipients) override;
    HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) override;
    // DISP_E_EXCEPTION with "Folder already exists": the session has a folder of that ID.
    HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE Validate() override;
    HRESULT STDMETHODCALLTYPE CreateItem(VARIANT Stream, VARIANT ID, IItem** pVal) override;
    HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL* pVal) override;
    HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL newVal) override;
    HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) override;
    HRESULT STDMETHODCALLTYPE OpenStore(ULONG Flags, IUnknown** pStore) override;
    // As Resend, over the rows that Restriction leaves, without a row, and with a null JobID when it is no
    // text. The reference that this counts on Restriction stays.
    HRESULT STDMETHODCALLTYPE ResendEx(BSTR Recipients, IQuorvaneRestrict* Restriction, VARIANT resendAll,
                                       VARIANT JobID, VARIANT ProgressBar) override;
    // E_POINTER: a folder holds no restriction.
    HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict** pVal) override;
    // Asks the argument for its interface and stores nothing; the reference of that question stays.
    HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict* newVal) override;

private:
    // Opens the store (OpenMsgStore's flags) and the folder in it, for reading. E_POINTER: an identifier is
    // empty.
    HRESULT OpenMapiFolder(ULONG storeFlags, ComPtr<IMsgStore>& store, ComPtr<IUnknown>& folder) noexcept;

    // Steps of put_EntryID.
    HRESULT OpenFolder() noexcept;
    HRESULT Listen(IMsgStore* store, IMAPIContainer& folder) noexcept;
    HRESULT ProvideHashStore() noexcept;
    HRESULT FillSink(CAdviseSink& sink, IMsgStore* store, IMAPITable* table) noexcept;

    HRESULT RecordResend(BSTR jobId, BSTR recipients) noexcept;

    HRESULT CreateOptions() noexcept QV_REQUIRES(m_OptionsLock);

    // One subscription to the contents table. A folder that is opened again goes on with the new one; the
    // earlier ones stay subscribed until the folder goes.
    struct Listening {
        ComPtr<IMAPITable> contentsTable;
        ULONG adviseConnection = 0;
        ComPtr<CAdviseSink> adviseSink;
    };
    std::vector<Listening> m_Listenings;

    Bstr m_bstrCustomInfo;
    std::atomic<VARIANT_BOOL> m_bIgnoreEvents = VARIANT_FALSE;  // the notification worker reads it
    Mutex m_OptionsLock;
    ComPtr<IOptions> m_pOptions QV_GUARDED_BY(m_OptionsLock);
    ComPtr<IQuorvaneRestrict> m_pRestriction;  // stays empty
    SessionContext* const m_pSession;
    Bstr m_bstrStoreID;
    Bstr m_bstrEntryID;
    Bstr m_bstrID;
    bool m_bRequiresSave = false;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_FOLDERS_FOLDER_H_
