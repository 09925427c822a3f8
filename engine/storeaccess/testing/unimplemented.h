// storeaccess/testing/unimplemented.h: bases for fakes: every operation answers E_NOTIMPL.
#ifndef QUORVANE_ENGINE_STOREACCESS_TESTING_UNIMPLEMENTED_H_
#define QUORVANE_ENGINE_STOREACCESS_TESTING_UNIMPLEMENTED_H_

#include "platform/com/iid.h"
#include "platform/mapi/mapi.h"

namespace quorvane::testing {

class UnimplementedMAPITable : public IMAPITable {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPMAPIADVISESINK, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK, LONG, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG*, ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction, BOOKMARK, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG, ULONG, LPSRowSet*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Abort() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override { return E_NOTIMPL; }
};

// What all objects with properties share.
template <class Interface>
class UnimplementedProp : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray, ULONG, ULONG*, LPSPropValue*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG, LPSPropValue, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID,
                                     ULONG, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                        LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*,
                                              LPMAPINAMEID**) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*) override
    {
        return E_NOTIMPL;
    }
};

class UnimplementedMessage : public UnimplementedProp<IMessage> {
public:
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG, LPCIID, ULONG, LPATTACH*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID, ULONG, ULONG*, LPATTACH*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG, ULONG, LPMAPIPROGRESS, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG, LPADRLIST) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG) override { return E_NOTIMPL; }
};

class UnimplementedMsgStore : public UnimplementedProp<IMsgStore> {
public:
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG, LPENTRYID, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG, ULONG, LPENTRYID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION) override { return E_NOTIMPL; }
};

class UnimplementedMAPIFolder : public UnimplementedProp<IMAPIFolder> {
public:
    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID, ULONG, LPMESSAGE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST, LPCIID, LPVOID, ULONG, LPMAPIPROGRESS, ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG, LPTSTR, LPTSTR, LPCIID, ULONG, LPMAPIFOLDER*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, ULONG, LPMAPIPROGRESS,
                                         ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG, LPENTRYID, ULONG, LPMAPIPROGRESS, ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG) override { return E_NOTIMPL; }
};

class UnimplementedMAPISession : public IMAPISession {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR, ULONG, LPENTRYID, LPCIID, ULONG, LPMDB*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR, LPCIID, ULONG, LPADRBOOK*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetStatusTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EnumAdrTypes(ULONG, ULONG*, LPTSTR**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryIdentity(ULONG*, LPENTRYID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR, ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDefaultStore(ULONG, ULONG, LPENTRYID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AdminServices(ULONG, LPSERVICEADMIN*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG,
                                       ULONG, ULONG, LPSTR) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID, LPMESSAGE, ULONG*) override { return E_NOTIMPL; }
};

}  // namespace quorvane::testing

QUORVANE_IID(quorvane::testing::UnimplementedMessage, IID_IMessage);
QUORVANE_IID(quorvane::testing::UnimplementedMsgStore, IID_IMsgStore);
QUORVANE_IID(quorvane::testing::UnimplementedMAPIFolder, IID_IMAPIFolder);
QUORVANE_IID(quorvane::testing::UnimplementedMAPITable, IID_IMAPITable);
QUORVANE_IID(quorvane::testing::UnimplementedMAPISession, IID_IMAPISession);

#endif  // QUORVANE_ENGINE_STOREACCESS_TESTING_UNIMPLEMENTED_H_
