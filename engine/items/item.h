// items/item.h: CItem, the engine's object for one shared message.
//
// An item stands for a live message of a local store (a detected change), for what a received storage
// file says about one (Load), or for a message that a folder made from a stream. It ties together three
// identities: the sharing ID that all participants agree on, the entry identifier in the local store, and
// the ID of the shared folder that it belongs to.
//
// Threading: one thread at a time per item; an item has no lock. Database operations open a session of
// their own or use the caller's.
#ifndef QUORVANE_ENGINE_ITEMS_ITEM_H_
#define QUORVANE_ENGINE_ITEMS_ITEM_H_

#include <span>

#include "engine/items/message_storage.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "engine/session/context/session_link.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/dispatch.h"
#include "platform/com/safe_array.h"
#include "platform/com/variant.h"
#include "platform/mapi/mapi.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class CMapiObjectsCache;
class DatabaseSession;
class LocalMessageId;

class CItem : public ComObject<CItem, Answers<IPersistStorage, IPersist>, IPersistStreamInit,
                               ISupportErrorInfo, DispatchImpl<IItem>>,
              private SessionHandle {
public:
    // session  [in]  the owner; not counted. When it ends the item lets go of its message, and what needs
    // either
    //                of the two gives E_UNEXPECTED from then on.
    explicit CItem(SessionContext* session) : SessionHandle(session) {}

    // The fields that whoever makes an item fills in directly. Identifiers are hexadecimal text.
    Bstr m_bstrEntryID;            // PR_ENTRYID; empty until known
    Bstr m_bstrID;                 // the sharing ID; DBAppend makes one when it is empty
    Bstr m_bstrPreviousID;         // m_bstrID before the last put_ID; the key of DBUpdate's row
    Bstr m_bstrStoreID;            // PR_STORE_ENTRYID
    Bstr m_bstrCustomInfo;         // free text of the host, carried with the item
    Bstr m_bstrFolderID;           // the sharing ID of the folder
    Bstr m_bstrFolderEntryID;      // the parent folder's PR_ENTRYID; filled when it is needed first
    double m_dblLastModified = 0;  // PR_LAST_MODIFICATION_TIME as an OLE date
    double m_dblVersion = 2.0;     // of the row in tblItem
    LONG m_lAction = qv_ac_NoAction;
    SafeArray m_ExcludedProperties;  // of VARIANT: tags, or "FileAs", that are not to be carried
    bool m_bUnRead = true;           // the read state that the public Submit gives to the message

    // Operations of the class itself, beside those of the interfaces.

    // Saves into a storage that the caller has for it already. As Save(target, TRUE); a failure is traced.
    [[nodiscard]] virtual HRESULT Send(IStorage* target) noexcept;

    // Reads one item of a storage file and finds its place here: the folder by its ID, the message by the
    // item's row. No "MAPI_DATA" in the storage gives an item without a message, which is a deletion.
    //
    // storage  [in]  the item's sub-storage. Its "MAPI_DATA" stays open as long as the message.
    // session  [in]  an open session; a failure of the row's lookup doesn't end the operation.
    //
    // S_OK                   loaded, with or without a message and with or without a row.
    // DISP_E_MEMBERNOTFOUND  no folder of that ID is shared here.
    // E_FAIL, E_ACCESSDENIED "Contents" is damaged.
    // MAPI_E_CORRUPT_DATA    "MAPI_DATA" isn't a whole message (CheckCarriedMessage).
    // STG_E_*, MAPI_E_*      as they come.
    // After a failure the fields that were read already stay; the item has no message.
    [[nodiscard]] virtual HRESULT Load(IStorage* storage, DatabaseSession& session) noexcept;

    // The item's row in tblItem, by m_bstrEntryID or by m_bstrID. Only S_OK means a row, which then gives
    // m_bstrID or m_bstrEntryID, m_bstrStoreID, m_dblLastModified and m_dblVersion.
    //
    // S_OK             the row was read.
    // DB_S_ENDOFROWSET no row; the fields are untouched. A success code: test for S_OK.
    // Others come from the database.
    [[nodiscard]] virtual HRESULT DBRead() noexcept;
    [[nodiscard]] virtual HRESULT DBRead(DatabaseSession& session) noexcept;
    [[nodiscard]] virtual HRESULT DBReadByID() noexcept;
    [[nodiscard]] virtual HRESULT DBReadByID(DatabaseSession& session) noexcept;

    // Removes the rows of m_bstrID; S_OK also when there was none.
    [[nodiscard]] virtual HRESULT DBDelete() noexcept;
    [[nodiscard]] virtual HRESULT DBDelete(DatabaseSession& session) noexcept;

    // Writes the row of m_bstrPreviousID, or of m_bstrID when that is empty; forgets the previous ID.
    // S_OK also when there is no such row.
    [[nodiscard]] virtual HRESULT DBUpdate() noexcept;

    // S_OK: the row's time differs from the item's. E_FAIL: it equals. DB_S_ENDOFROWSET: no row.
    [[nodiscard]] virtual HRESULT DBCheckModified() noexcept;

    // Adds a row; makes a GUID for m_bstrID first when it is empty.
    [[nodiscard]] virtual HRESULT DBAppend() noexcept;
    [[nodiscard]] virtual HRESULT DBAppend(DatabaseSession& session) noexcept;

    // Applies a received item to the store: makes, replaces or deletes the local message, keeps the row
    // and the hash store in step, and tells the host (onPostprocess). Takes the session's submit lock for
    // the time of writing; nothing may be holding it on this thread.
    //
    // session  [in]  an open session.
    // cache    [in]  opens stores and folders.
    //
    // S_OK          applied; after a replacement the item stands for the live message. Also when there is
    //               neither a message in the item nor an entry identifier to look for.
    // E_INVALIDARG  the item knows no store, or the store's identifier is malformed; or it has a message, and
    //               an ID that no row can hold. Nothing was written then.
    // Others come from the store or the database (a deletion whose message is gone: what opening it gave);
    // what was written until then stays.
    [[nodiscard]] virtual HRESULT Submit(DatabaseSession& session, CMapiObjectsCache& cache) noexcept;

    // Removes all attachments (or recipients) of a message. A single attachment that can't be removed is
    // traced and left.
    [[nodiscard]] virtual HRESULT DeleteAtachments(IMessage* message) noexcept;
    [[nodiscard]] virtual HRESULT DeleteRecipients(IMessage* message) noexcept;

    // Called by the public Submit before it fills a message. Does nothing: a place for more.
    [[nodiscard]] virtual HRESULT ClearMessageExtras(IMessage* message) noexcept;

    virtual ~CItem();

    // The message that the item holds now; null when it holds none. No reference is added.
    IMessage* Message() const noexcept { return m_pMessage.Get(); }

    // ISupportErrorInfo: S_OK for IItem, S_FALSE for all else.
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override;

    // IPersist, IPersistStorage, IPersistStreamInit.
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;
    HRESULT STDMETHODCALLTYPE IsDirty() override;
    HRESULT STDMETHODCALLTYPE InitNew(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE InitNew() override;
    // Reads "Contents" alone.
    HRESULT STDMETHODCALLTYPE Load(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE Load(IStream* stream) override;
    // Writes "MAPI_DATA" (removes it when the item has no message) and "Contents". The result is that of
    // "Contents"; a message that can't be copied is traced.
    HRESULT STDMETHODCALLTYPE Save(IStorage* storage, BOOL sameAsLoad) override;
    HRESULT STDMETHODCALLTYPE Save(IStream* stream, BOOL clearDirty) override;
    HRESULT STDMETHODCALLTYPE SaveCompleted(IStorage* storage) override;
    HRESULT STDMETHODCALLTYPE HandsOffStorage() override;
    HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER* size) override;

    // IItem.
    HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_ExcludedProperties(SAFEARRAY** pVal) override;
    HRESULT STDMETHODCALLTYPE put_ExcludedProperties(SAFEARRAY** newVal) override;
    HRESULT STDMETHODCALLTYPE get_Folder(IFolder** pVal) override;
    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override;
    HRESULT STDMETHODCALLTYPE put_Raw(IUnknown* newVal) override;
    HRESULT STDMETHODCALLTYPE Send(BSTR Recipients) override;
    HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE GetProperty(VARIANT PropTag, VARIANT* Value) override;
    HRESULT STDMETHODCALLTYPE Submit() override;
    HRESULT STDMETHODCALLTYPE get_Action(qv_Action* pVal) override;
    HRESULT STDMETHODCALLTYPE put_Action(qv_Action newVal) override;
    HRESULT STDMETHODCALLTYPE DeleteProperty(VARIANT PropertyTag) override;
    HRESULT STDMETHODCALLTYPE SaveToFile(BSTR FileName) override;
    HRESULT STDMETHODCALLTYPE get_Stream(VARIANT* pVal) override;
    HRESULT STDMETHODCALLTYPE put_Stream(VARIANT newVal) override;
    // Shows the message in the form of the mail client, over the thread's active window and without waiting
    // for its end; what the arguments say doesn't matter. The item has to hold its message already:
    // E_POINTER. MAPI_E_*, DISP_E_MEMBERNOTFOUND (the folder isn't shared) and others: as the steps gave
    // them.
    HRESULT STDMETHODCALLTYPE Display(VARIANT_BOOL Modal, LONG Parent) override;
    HRESULT STDMETHODCALLTYPE get_UnRead(VARIANT_BOOL* pVal) override;
    HRESULT STDMETHODCALLTYPE put_UnRead(VARIANT_BOOL newVal) override;

    // Lets go of the message and of what stands behind it, in the order that they rest on each other.
    void ReleaseMessage() noexcept;

private:
    void LetGo() noexcept override { ReleaseMessage(); }
    // Opens the message that the identifiers name, for reading. E_INVALIDARG: one of them is empty.
    HRESULT OpenLiveMessage() noexcept;
    // The MAPI folder that the item is in, and the MAPI session, as Display needs them.
    HRESULT FolderAndSession(ComPtr<IMAPIFolder>& folder, ComPtr<IMAPISession>& session) noexcept;

    // Steps of Load.
    HRESULT FindSharedFolder() noexcept;
    void ReadPlace(DatabaseSession& session) noexcept;
    HRESULT OpenCarriedMessage(IStorage& data) noexcept;

    // Steps of Save and of the streams.
    HRESULT SaveWith(IStorage& storage, BOOL sameAsLoad, HRESULT& copied) noexcept;
    HRESULT SaveMessage(IStorage& storage, HRESULT& copied) noexcept;
    HRESULT CopyMessageTo(LPMSGSESS session, IStorage& data) noexcept;
    HRESULT OpenStreamedMessage(std::span<const BYTE> image) noexcept;

    // Steps of Submit: applying an item that was received, and the host's own way.
    template <class OpenFolder, class Replace, class Remove>
    HRESULT Apply(IMsgStore& store, OpenFolder openFolder, Replace replace, Remove remove) noexcept;
    HRESULT CheckRow() const noexcept;
    HRESULT ParentEntryId(Bstr& entryId) noexcept;
    HRESULT ReplaceReceived(IMessage& local, DatabaseSession& session) noexcept;
    HRESULT WriteReceived(IMessage& local, DatabaseSession& session) noexcept;
    HRESULT ReplaceLocal(IMessage& local) noexcept;
    HRESULT WriteLocal(IMessage& local, bool& leaveReset) noexcept;
    HRESULT ChooseReadFlag(ULONG& readFlag, bool& optionsMissing) noexcept;
    HRESULT DeleteWithRow(DatabaseSession& session, LocalMessageId& id, IMAPIFolder& folder) noexcept;
    HRESULT RewriteRow(DatabaseSession& session) noexcept;
    HRESULT RewriteRow() noexcept;
    HRESULT Postprocess() noexcept;
    HRESULT PostprocessThreadProc(BSTR entryId, BSTR storeId) noexcept;

    const SessionHandle& m_pSession = *this;

    ComPtr<ILockBytes> m_pMessageLockBytes;  // the memory behind a detached message
    ComPtr<IStorage> m_pMessageStorage;      // the compound file in it
    ComPtr<IMessage> m_pMessage;             // live in a store, or on a storage
    MessageSession m_MessageSession;         // of a message on a storage
    bool m_bRequiresSave = false;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_ITEM_H_
