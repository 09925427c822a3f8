#include "engine/monitor/msg_stores.h"

#include "engine/monitor/advise_sink.h"
#include "engine/monitor/event_classifier.h"
#include "engine/session/context/addin.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/hex.h"

namespace quorvane {

namespace {

constexpr Traced kAddTraced{"CMsgStores::Add"};

constexpr ULONG kStoreEvents =
    fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved | fnevObjectCopied;

// Read of every store that is subscribed; the value isn't used.
constexpr ULONG kStoreProbeTag = 0x662B0102;

HRESULT ReadStoreId(IMsgStore& store, Bstr& text) noexcept
{
    PropValue value;
    HR_TRY_QUIET(mapi::HrGetOneProp(&store, PR_ENTRYID, value.Put()));
    if (value->ulPropTag != PR_ENTRYID)
        return E_INVALIDARG;
    return HexFromBinary(value->Value.bin, text);
}

}  // namespace

CMsgStores::CMsgStores(SessionContext* session) noexcept
    : m_pSession(session), m_pGate(session ? session->Notifications() : nullptr)
{}

CMsgStores::~CMsgStores()
{
    for (auto& [id, record] : m_Stores) {
        HR_IGNORE(record.pStore->Unadvise(record.ulConnection), "the store is let go of in any case");
        record.pSink.Reset();
    }
}

HRESULT CMsgStores::Add(IUnknown* pMsgStore)
{
    if (m_pSession && IsSessionOptionSet(kAddTraced, *m_pSession, kNoListeners))
        return S_OK;
    ComPtr<IMsgStore> store;
    HR_TRY(kAddTraced, QueryFor(pMsgStore, store));
    return kAddTraced(Subscribe(store));
}

HRESULT CMsgStores::Subscribe(const ComPtr<IMsgStore>& store) noexcept
{
    Bstr id;
    HR_TRY_QUIET(ReadStoreId(*store.Get(), id));
    try {
        const auto [place, isNew] = m_Stores.try_emplace(OleString(id.View()));
        if (!isNew)
            return S_OK;
        place->second.pStore = store;
        const HRESULT hr = AdviseStore(place->second);
        if (FAILED(hr))
            m_Stores.erase(place);
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CMsgStores::AdviseStore(StoreAdviseRecord& record) noexcept
{
    const auto sink = MakeComObject<CAdviseSink>();
    if (!sink)
        return E_OUTOFMEMORY;
    sink->SetSession(m_pSession);
    sink->m_pStore = record.pStore;
    ComPtr<IMAPIAdviseSink> plain;
    HR_TRY_QUIET(sink.As(plain));
    HR_TRY_QUIET(mapi::HrThisThreadAdviseSink(plain.Get(), record.pSink.Put()));
    if (!record.pSink)
        return E_FAIL;
    HR_TRY_QUIET(record.pStore->Advise(0, nullptr, kStoreEvents, record.pSink.Get(), &record.ulConnection));
    PropValue probe;
    HR_IGNORE(mapi::HrGetOneProp(record.pStore.Get(), kStoreProbeTag, probe.Put()), "nothing of it is used");
    return S_OK;
}

ULONG CMsgStores::OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications)
{
    const Traced traced{"CMsgStores::OnNotify"};
    if (!m_pSession)
        return static_cast<ULONG>(traced(E_UNEXPECTED));
    const GatePass pass(m_pGate);
    if (!pass.IsHeld())
        return static_cast<ULONG>(S_OK);
    Addin addin;
    if (const HRESULT hr = addin.Connect(*m_pSession); FAILED(hr))
        return static_cast<ULONG>(traced(hr));
    for (ULONG i = 0; i < cNotif && lpNotifications; ++i)
        HR_IGNORE(EventClassifier(*m_pSession, addin).Classify(lpNotifications[i]),
                  "traced; the next one goes on");
    return static_cast<ULONG>(S_OK);
}

}  // namespace quorvane
