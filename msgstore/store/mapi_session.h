// msgstore/store/mapi_session.h: IMAPISession.
#ifndef QUORVANE_MSGSTORE_STORE_MAPI_SESSION_H_
#define QUORVANE_MSGSTORE_STORE_MAPI_SESSION_H_

#include "msgstore/store/session_state.h"
#include "platform/com/com_object.h"

namespace quorvane {

// A logon to a profile, as it was at the logon. There is no address book, no transport and no form in it. Any
// thread may call.
class CMapiSession final : public ComObject<CMapiSession, IMAPISession, FreeThreaded> {
public:
    explicit CMapiSession(std::shared_ptr<SessionState> state) noexcept : m_state(std::move(state)) {}

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR uiParam, ULONG idSize, LPENTRYID id, LPCIID iid,
                                           ULONG flags, LPMDB* store) override;
    HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR uiParam, LPCIID iid, ULONG flags,
                                              LPADRBOOK* book) override;
    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID uid, LPCIID iid, ULONG flags,
                                                 LPPROFSECT* section) override;
    HRESULT STDMETHODCALLTYPE GetStatusTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                                              ULONG flags, ULONG* result) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG idSize, LPENTRYID id, ULONG eventMask, LPMAPIADVISESINK sink,
                                     ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE MessageOptions(ULONG_PTR uiParam, ULONG flags, LPTSTR addressType,
                                             LPMESSAGE message) override;
    HRESULT STDMETHODCALLTYPE QueryDefaultMessageOpt(LPTSTR addressType, ULONG flags, ULONG* count,
                                                     LPSPropValue* options) override;
    HRESULT STDMETHODCALLTYPE EnumAdrTypes(ULONG flags, ULONG* count, LPTSTR** types) override;
    HRESULT STDMETHODCALLTYPE QueryIdentity(ULONG* idSize, LPENTRYID* id) override;
    HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR uiParam, ULONG flags, ULONG reserved) override;
    HRESULT STDMETHODCALLTYPE SetDefaultStore(ULONG flags, ULONG idSize, LPENTRYID id) override;
    HRESULT STDMETHODCALLTYPE AdminServices(ULONG flags, LPSERVICEADMIN* admin) override;
    HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR uiParam, LPMDB store, LPMAPIFOLDER parent, LPCIID iid,
                                       ULONG token, LPMESSAGE sent, ULONG flags, ULONG status,
                                       ULONG messageFlags, ULONG access, LPSTR messageClass) override;
    HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID iid, LPMESSAGE message, ULONG* token) override;

private:
    const std::shared_ptr<SessionState> m_state;
};

// Logs on, as MAPILogonEx does.
//
// MAPI_E_LOGON_FAILED: there is no such profile, or no default one.
[[nodiscard]] HRESULT Logon(LPTSTR profile, ULONG flags, LPMAPISESSION* session) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MAPI_SESSION_H_
