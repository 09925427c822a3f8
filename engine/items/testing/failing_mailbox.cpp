#include "engine/items/testing/failing_mailbox.h"

#include <utility>

#include "engine/storeaccess/testing/fake_store.h"
#include "platform/com/com_object.h"

namespace quorvane::testing {

HRESULT FailingCall::Count(const char* interfaceName, const char* call)
{
    if (++calls_ != at_)
        return S_OK;
    failed_ = std::string(interfaceName) + "::" + call;
    return kFailure;
}

namespace {

using Plan = std::shared_ptr<FailingCall>;

// A real object behind a plan.
template <class Interface>
class Counted {
public:
    Counted(ComPtr<Interface> object, Plan call, const char* name)
        : object_(std::move(object)), call_(std::move(call)), name_(name)
    {}

    template <class Method, class... Arguments>
    HRESULT Pass(const char* name, Method method, Arguments... arguments)
    {
        const HRESULT hr = call_->Count(name_, name);
        return FAILED(hr) ? hr : (object_.Get()->*method)(arguments...);
    }
    const Plan& Call() const { return call_; }

private:
    const ComPtr<Interface> object_;
    const Plan call_;
    const char* const name_;
};

// Puts `Wrapper` around what a successful call gave.
template <class Wrapper, class Interface>
HRESULT Wrap(HRESULT hr, const Plan& call, Interface** object)
{
    if (SUCCEEDED(hr) && *object)
        *object = ComPtr<Interface>(MakeComObject<Wrapper>(ComPtr<Interface>::Attach(*object), call).Get())
                      .Detach();
    return hr;
}

class FailingTable final : public ComObject<FailingTable, Answers<UnimplementedMAPITable>> {
public:
    FailingTable(ComPtr<IMAPITable> table, Plan call)
        : table_(std::move(table), std::move(call), "IMAPITable")
    {}

    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG flags) override
    {
        return table_.Pass("SetColumns", &IMAPITable::SetColumns, tags, flags);
    }
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG flags, ULONG* count) override
    {
        return table_.Pass("GetRowCount", &IMAPITable::GetRowCount, flags, count);
    }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) override
    {
        return table_.Pass("SeekRow", &IMAPITable::SeekRow, origin, count, sought);
    }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* rows) override
    {
        return table_.Pass("QueryRows", &IMAPITable::QueryRows, count, flags, rows);
    }
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* place) override
    {
        return table_.Pass("CreateBookmark", &IMAPITable::CreateBookmark, place);
    }
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK place) override
    {
        return table_.Pass("FreeBookmark", &IMAPITable::FreeBookmark, place);
    }

private:
    Counted<IMAPITable> table_;
};

// What all objects with properties have. `Base` is the interface, or an implementation of it that answers
// E_NOTIMPL.
template <class Derived, class Interface, class Base, class... Above>
class FailingProps : public ComObject<Derived, Answers<Base, Above..., IMAPIProp>> {
public:
    FailingProps(ComPtr<Interface> object, Plan call, const char* name)
        : real_(std::move(object), std::move(call), name)
    {}

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override
    {
        return real_.Pass("SaveChanges", &Interface::SaveChanges, flags);
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override
    {
        return real_.Pass("GetProps", &Interface::GetProps, tags, flags, count, values);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override
    {
        return real_.Pass("GetPropList", &Interface::GetPropList, flags, tags);
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags,
                                           LPUNKNOWN* object) override
    {
        return real_.Pass("OpenProperty", &Interface::OpenProperty, tag, iid, options, flags, object);
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override
    {
        return real_.Pass("SetProps", &Interface::SetProps, count, values, problems);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) override
    {
        return real_.Pass("DeleteProps", &Interface::DeleteProps, tags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG interfaceCount, LPCIID interfaces, LPSPropTagArray tags,
                                     ULONG uiParam, LPMAPIPROGRESS progress, LPCIID iid, LPVOID target,
                                     ULONG flags, LPSPropProblemArray* problems) override
    {
        return real_.Pass("CopyTo", &Interface::CopyTo, interfaceCount, interfaces, tags, uiParam, progress,
                          iid, target, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                        LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID set, ULONG flags, ULONG* count,
                                              LPMAPINAMEID** names) override
    {
        return real_.Pass("GetNamesFromIDs", &Interface::GetNamesFromIDs, tags, set, flags, count, names);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override
    {
        return real_.Pass("GetIDsFromNames", &Interface::GetIDsFromNames, count, names, flags, tags);
    }

protected:
    Counted<Interface> real_;
};

class FailingAttachment final : public FailingProps<FailingAttachment, IAttach, IAttach> {
public:
    FailingAttachment(ComPtr<IAttach> attachment, Plan call)
        : FailingProps(std::move(attachment), std::move(call), "IAttach")
    {}
};

class FailingMessage final : public FailingProps<FailingMessage, IMessage, UnimplementedMessage> {
public:
    FailingMessage(ComPtr<IMessage> message, Plan call)
        : FailingProps(std::move(message), std::move(call), "IMessage")
    {}

    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override
    {
        return Wrap<FailingTable>(
            real_.Pass("GetAttachmentTable", &IMessage::GetAttachmentTable, flags, table), real_.Call(),
            table);
    }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iid, ULONG flags, LPATTACH* attachment) override
    {
        return Wrap<FailingAttachment>(
            real_.Pass("OpenAttach", &IMessage::OpenAttach, number, iid, flags, attachment), real_.Call(),
            attachment);
    }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iid, ULONG flags, ULONG* number,
                                           LPATTACH* attachment) override
    {
        return Wrap<FailingAttachment>(
            real_.Pass("CreateAttach", &IMessage::CreateAttach, iid, flags, number, attachment), real_.Call(),
            attachment);
    }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG uiParam, LPMAPIPROGRESS progress,
                                           ULONG flags) override
    {
        return real_.Pass("DeleteAttach", &IMessage::DeleteAttach, number, uiParam, progress, flags);
    }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override
    {
        return Wrap<FailingTable>(real_.Pass("GetRecipientTable", &IMessage::GetRecipientTable, flags, table),
                                  real_.Call(), table);
    }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST changes) override
    {
        return real_.Pass("ModifyRecipients", &IMessage::ModifyRecipients, flags, changes);
    }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override
    {
        return real_.Pass("SetReadFlag", &IMessage::SetReadFlag, flags);
    }
};

class FailingFolder final
    : public FailingProps<FailingFolder, IMAPIFolder, UnimplementedMAPIFolder, IMAPIContainer> {
public:
    FailingFolder(ComPtr<IMAPIFolder> folder, Plan call)
        : FailingProps(std::move(folder), std::move(call), "IMAPIFolder")
    {}

    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message) override
    {
        return Wrap<FailingMessage>(
            real_.Pass("CreateMessage", &IMAPIFolder::CreateMessage, iid, flags, message), real_.Call(),
            message);
    }
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST messages, ULONG uiParam, LPMAPIPROGRESS progress,
                                             ULONG flags) override
    {
        return real_.Pass("DeleteMessages", &IMAPIFolder::DeleteMessages, messages, uiParam, progress, flags);
    }
    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override
    {
        return Wrap<FailingTable>(
            real_.Pass("GetContentsTable", &IMAPIFolder::GetContentsTable, flags, table), real_.Call(),
            table);
    }
};

// An object that an identifier opened, as what it is.
HRESULT WrapEntry(HRESULT hr, const Plan& call, LPUNKNOWN* object)
{
    if (FAILED(hr))
        return hr;
    const ComPtr<IUnknown> opened = ComPtr<IUnknown>::Attach(std::exchange(*object, nullptr));
    ComPtr<IMessage> message;
    ComPtr<IMAPIFolder> folder;
    if (SUCCEEDED(opened.As(message)))
        *object = ComPtr<IMessage>(MakeComObject<FailingMessage>(message, call).Get()).Detach();
    else if (SUCCEEDED(opened.As(folder)))
        *object = ComPtr<IMAPIFolder>(MakeComObject<FailingFolder>(folder, call).Get()).Detach();
    return *object ? hr : E_NOINTERFACE;
}

// Crosses to other threads as the store itself does.
class FailingStore final
    : public ComObject<FailingStore, Answers<UnimplementedMsgStore, IMAPIProp>, FreeThreaded> {
public:
    FailingStore(ComPtr<IMsgStore> store, Plan call) : real_(std::move(store), std::move(call), "IMsgStore")
    {}

    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override
    {
        return WrapEntry(real_.Pass("OpenEntry", &IMsgStore::OpenEntry, idSize, id, iid, flags, type, object),
                         real_.Call(), object);
    }

private:
    Counted<IMsgStore> real_;
};

class FailingSession final : public ComObject<FailingSession, Answers<UnimplementedMAPISession>> {
public:
    FailingSession(ComPtr<IMAPISession> session, Plan call)
        : real_(std::move(session), std::move(call), "IMAPISession")
    {}

    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR uiParam, ULONG idSize, LPENTRYID id, LPCIID iid,
                                           ULONG flags, LPMDB* store) override
    {
        return Wrap<FailingStore>(
            real_.Pass("OpenMsgStore", &IMAPISession::OpenMsgStore, uiParam, idSize, id, iid, flags, store),
            real_.Call(), store);
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override
    {
        return WrapEntry(
            real_.Pass("OpenEntry", &IMAPISession::OpenEntry, idSize, id, iid, flags, type, object),
            real_.Call(), object);
    }

private:
    Counted<IMAPISession> real_;
};

}  // namespace

ComPtr<IMAPISession> MakeFailingSession(ComPtr<IMAPISession> session, std::shared_ptr<FailingCall> call)
{
    return ComPtr<IMAPISession>(MakeComObject<FailingSession>(std::move(session), std::move(call)).Get());
}

}  // namespace quorvane::testing
