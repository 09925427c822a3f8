// platform/mapi/sdk/mapi_interfaces.h: MAPI's interfaces, off Windows. Slots stand in the SDK's order.
#ifndef QUORVANE_PLATFORM_MAPI_SDK_MAPI_INTERFACES_H_
#define QUORVANE_PLATFORM_MAPI_SDK_MAPI_INTERFACES_H_

#include "platform/mapi/sdk/mapidefs.h"

struct IAddrBook;
struct IAttach;
struct IMAPIFolder;
struct IMAPIProgress;
struct IMAPIProp;
struct IMAPISession;
struct IMAPITable;
struct IMessage;
struct IMsgServiceAdmin;
struct IMsgStore;
struct IProfAdmin;
struct IProfSect;
struct IProviderAdmin;

using LPADRBOOK = IAddrBook*;
using LPATTACH = IAttach*;
using LPMAPIFOLDER = IMAPIFolder*;
using LPMAPIPROGRESS = IMAPIProgress*;
using LPMAPIPROP = IMAPIProp*;
using LPMAPISESSION = IMAPISession*;
using LPMAPITABLE = IMAPITable*;
using LPMESSAGE = IMessage*;
using LPSERVICEADMIN = IMsgServiceAdmin*;
using LPMDB = IMsgStore*;
using LPPROFADMIN = IProfAdmin*;
using LPPROFSECT = IProfSect*;
using LPPROVIDERADMIN = IProviderAdmin*;

struct IMAPIAdviseSink : IUnknown {
    virtual ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) = 0;
};
using LPMAPIADVISESINK = IMAPIAdviseSink*;

struct IMAPIProgress : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Progress(ULONG value, ULONG count, ULONG total) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFlags(ULONG* flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMax(ULONG* max) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMin(ULONG* min) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLimits(LPULONG min, LPULONG max, LPULONG flags) = 0;
};

struct IMAPIProp : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                               LPSPropValue* values) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG interfaceOptions, ULONG flags,
                                                   LPUNKNOWN* object) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                               LPSPropProblemArray* problems) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyTo(ULONG excludedCount, LPCIID excludedInterfaces,
                                             LPSPropTagArray excludedTags, ULONG uiParam,
                                             LPMAPIPROGRESS progress, LPCIID targetInterface, LPVOID target,
                                             ULONG flags, LPSPropProblemArray* problems) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray includedTags, ULONG uiParam,
                                                LPMAPIPROGRESS progress, LPCIID targetInterface,
                                                LPVOID target, ULONG flags,
                                                LPSPropProblemArray* problems) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID propertySet, ULONG flags,
                                                      ULONG* count, LPMAPINAMEID** names) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                                      LPSPropTagArray* tags) = 0;
};

struct IMAPITable : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE Advise(ULONG eventMask, LPMAPIADVISESINK sink, ULONG* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStatus(ULONG* status, ULONG* type) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryColumns(ULONG flags, LPSPropTagArray* tags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRowCount(ULONG flags, ULONG* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) = 0;
    virtual HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG numerator, ULONG denominator) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction restriction, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* bookmark) = 0;
    virtual HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK bookmark) = 0;
    virtual HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet order, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet* order) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* rows) = 0;
    virtual HRESULT STDMETHODCALLTYPE Abort() = 0;
    virtual HRESULT STDMETHODCALLTYPE ExpandRow(ULONG keySize, LPBYTE key, ULONG rowCount, ULONG flags,
                                                LPSRowSet* rows, ULONG* moreRows) = 0;
    virtual HRESULT STDMETHODCALLTYPE CollapseRow(ULONG keySize, LPBYTE key, ULONG flags,
                                                  ULONG* rowCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG flags, ULONG timeout, ULONG* status) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG flags, ULONG keySize, LPBYTE key,
                                                       ULONG* stateSize, LPBYTE* state) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG flags, ULONG stateSize, LPBYTE state,
                                                       BOOKMARK* location) = 0;
};

struct IProfSect : IMAPIProp {};

struct IMAPIContainer : IMAPIProp {
    virtual HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags,
                                                ULONG* type, LPUNKNOWN* object) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction restriction, LPENTRYLIST containers,
                                                        ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG flags, LPSRestriction* restriction,
                                                        LPENTRYLIST* containers, ULONG* state) = 0;
};

struct IMsgStore : IMAPIProp {
    virtual HRESULT STDMETHODCALLTYPE Advise(ULONG idSize, LPENTRYID id, ULONG eventMask,
                                             LPMAPIADVISESINK sink, ULONG* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                                                      ULONG flags, ULONG* result) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags,
                                                ULONG* type, LPUNKNOWN* object) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG idSize,
                                                       LPENTRYID id) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG* idSize,
                                                       LPENTRYID* id, LPTSTR* explicitClass) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG* flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG idSize, LPENTRYID id, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE message, ULONG state) = 0;
    virtual HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG flags, ULONG idSize, LPENTRYID id) = 0;
    virtual HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION notification) = 0;
};

struct IMAPIFolder : IMAPIContainer {
    virtual HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST messages, LPCIID iid, LPVOID target,
                                                   ULONG uiParam, LPMAPIPROGRESS progress, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST messages, ULONG uiParam,
                                                     LPMAPIPROGRESS progress, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateFolder(ULONG type, LPTSTR name, LPTSTR comment, LPCIID iid,
                                                   ULONG flags, LPMAPIFOLDER* folder) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyFolder(ULONG idSize, LPENTRYID id, LPCIID iid, LPVOID target,
                                                 LPTSTR newName, ULONG uiParam, LPMAPIPROGRESS progress,
                                                 ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG idSize, LPENTRYID id, ULONG uiParam,
                                                   LPMAPIPROGRESS progress, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST messages, ULONG uiParam,
                                                   LPMAPIPROGRESS progress, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG idSize, LPENTRYID id, ULONG flags,
                                                       ULONG* status) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG idSize, LPENTRYID id, ULONG newStatus,
                                                       ULONG mask, ULONG* oldStatus) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet order, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE EmptyFolder(ULONG uiParam, LPMAPIPROGRESS progress, ULONG flags) = 0;
};

struct IMessage : IMAPIProp {
    virtual HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iid, ULONG flags,
                                                 LPATTACH* attachment) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iid, ULONG flags, ULONG* number,
                                                   LPATTACH* attachment) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG uiParam, LPMAPIPROGRESS progress,
                                                   ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST changes) = 0;
    virtual HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) = 0;
};

struct IAttach : IMAPIProp {};

struct IMAPISession : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR uiParam, ULONG idSize, LPENTRYID id, LPCIID iid,
                                                   ULONG flags, LPMDB* store) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR uiParam, LPCIID iid, ULONG flags,
                                                      LPADRBOOK* book) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID uid, LPCIID iid, ULONG flags,
                                                         LPPROFSECT* section) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStatusTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags,
                                                ULONG* type, LPUNKNOWN* object) = 0;
    virtual HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                                                      ULONG flags, ULONG* result) = 0;
    virtual HRESULT STDMETHODCALLTYPE Advise(ULONG idSize, LPENTRYID id, ULONG eventMask,
                                             LPMAPIADVISESINK sink, ULONG* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE MessageOptions(ULONG_PTR uiParam, ULONG flags, LPTSTR addressType,
                                                     LPMESSAGE message) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDefaultMessageOpt(LPTSTR addressType, ULONG flags, ULONG* count,
                                                             LPSPropValue* options) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumAdrTypes(ULONG flags, ULONG* count, LPTSTR** types) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryIdentity(ULONG* idSize, LPENTRYID* id) = 0;
    virtual HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR uiParam, ULONG flags, ULONG reserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultStore(ULONG flags, ULONG idSize, LPENTRYID id) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdminServices(ULONG flags, LPSERVICEADMIN* admin) = 0;
    virtual HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR uiParam, LPMDB store, LPMAPIFOLDER parent,
                                               LPCIID iid, ULONG token, LPMESSAGE sent, ULONG flags,
                                               ULONG status, ULONG messageFlags, ULONG access,
                                               LPSTR messageClass) = 0;
    virtual HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID iid, LPMESSAGE message, ULONG* token) = 0;
};

struct IProfAdmin : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProfileTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateProfile(LPTSTR name, LPTSTR password, ULONG_PTR uiParam,
                                                    ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteProfile(LPTSTR name, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ChangeProfilePassword(LPTSTR name, LPTSTR oldPassword,
                                                            LPTSTR newPassword, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyProfile(LPTSTR oldName, LPTSTR password, LPTSTR newName,
                                                  ULONG_PTR uiParam, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE RenameProfile(LPTSTR oldName, LPTSTR password, LPTSTR newName,
                                                    ULONG_PTR uiParam, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultProfile(LPTSTR name, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdminServices(LPTSTR name, LPTSTR password, ULONG_PTR uiParam,
                                                    ULONG flags, LPSERVICEADMIN* admin) = 0;
};

struct IMsgServiceAdmin : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMsgServiceTable(ULONG flags, LPMAPITABLE* table) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateMsgService(LPTSTR service, LPTSTR displayName, ULONG_PTR uiParam,
                                                       ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteMsgService(LPMAPIUID uid) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyMsgService(LPMAPIUID uid, LPTSTR displayName,
                                                     LPCIID sourceInterface, LPCIID targetInterface,
                                                     LPVOID target, ULONG_PTR uiParam, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE RenameMsgService(LPMAPIUID uid, ULONG flags, LPTSTR displayName) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConfigureMsgService(LPMAPIUID uid, ULONG_PTR uiParam, ULONG flags,
                                                          ULONG count, LPSPropValue properties) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID uid, LPCIID iid, ULONG flags,
                                                         LPPROFSECT* section) = 0;
    virtual HRESULT STDMETHODCALLTYPE MsgServiceTransportOrder(ULONG count, LPMAPIUID uids, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdminProviders(LPMAPIUID uid, ULONG flags, LPPROVIDERADMIN* admin) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPrimaryIdentity(LPMAPIUID uid, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProviderTable(ULONG flags, LPMAPITABLE* table) = 0;
};

#endif  // QUORVANE_PLATFORM_MAPI_SDK_MAPI_INTERFACES_H_
