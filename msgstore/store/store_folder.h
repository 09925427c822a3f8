// msgstore/store/store_folder.h: IMAPIFolder.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_FOLDER_H_
#define QUORVANE_MSGSTORE_STORE_STORE_FOLDER_H_

#include "msgstore/store/folder_rows.h"
#include "msgstore/store/made_properties.h"

namespace quorvane {

// How a folder of this project's stores knows another one: answered by CStoreFolder alone, with itself.
extern const IID kStoreFolderIid;

// A folder. Its row may go while the object lives: its methods then fail with MAPI_E_OBJECT_DELETED or
// MAPI_E_NOT_FOUND. One that searches holds nothing itself:
// what it shows is worked on where it lies. Any thread may call.
class CStoreFolder final : public StoreProp<CStoreFolder, Answers<IMAPIFolder, IMAPIContainer, IMAPIProp>> {
public:
    CStoreFolder(const OpenedStore& store, std::int64_t folderId, bool writable)
        : StoreProp(store, writable), m_folderId(folderId)
    {}

    const std::shared_ptr<StoreCore>& Core() const noexcept { return Store().core; }
    std::int64_t FolderId() const noexcept { return m_folderId; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction restriction, LPENTRYLIST containers,
                                                ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG flags, LPSRestriction* restriction,
                                                LPENTRYLIST* containers, ULONG* state) override;
    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message) override;
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST messages, LPCIID iid, LPVOID target, ULONG uiParam,
                                           LPMAPIPROGRESS progress, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST messages, ULONG uiParam, LPMAPIPROGRESS progress,
                                             ULONG flags) override;
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG type, LPTSTR name, LPTSTR comment, LPCIID iid, ULONG flags,
                                           LPMAPIFOLDER* folder) override;
    HRESULT STDMETHODCALLTYPE CopyFolder(ULONG idSize, LPENTRYID id, LPCIID iid, LPVOID target,
                                         LPTSTR newName, ULONG uiParam, LPMAPIPROGRESS progress,
                                         ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG idSize, LPENTRYID id, ULONG uiParam, LPMAPIPROGRESS progress,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST messages, ULONG uiParam, LPMAPIPROGRESS progress,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG idSize, LPENTRYID id, ULONG flags,
                                               ULONG* status) override;
    HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG idSize, LPENTRYID id, ULONG newStatus, ULONG mask,
                                               ULONG* oldStatus) override;
    HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet order, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE EmptyFolder(ULONG uiParam, LPMAPIPROGRESS progress, ULONG flags) override;

protected:
    [[nodiscard]] HRESULT ReadKept(PropertyBag& bag) override;
    [[nodiscard]] HRESULT WriteKept(const PropertyBag& bag) override;
    [[nodiscard]] HRESULT ReadMade(ULONG id, PropertyBag& bag) override;
    [[nodiscard]] HRESULT OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                                     LPUNKNOWN* object) noexcept override;

private:
    [[nodiscard]] HRESULT MarkListed(const ENTRYLIST& messages, bool read);
    [[nodiscard]] HRESULT MarkAll(bool read);
    [[nodiscard]] HRESULT CopyToOtherStore(const EntryId& id, IUnknown& target, const std::string& name,
                                           ULONG flags);
    [[nodiscard]] HRESULT FindRow(SqliteConnection& connection, FolderRow& row) const;

    const std::int64_t m_folderId;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_FOLDER_H_
