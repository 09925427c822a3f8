#include "msgstore/store/test_switches.h"

#include <algorithm>

#include "msgstore/store/store_core.h"
#include "msgstore/util/guarded.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

class CStoreTestSwitches final : public ComObject<CStoreTestSwitches, IStoreTestSwitches> {
public:
    explicit CStoreTestSwitches(std::shared_ptr<StoreCore> core) noexcept : m_core(std::move(core)) {}

    HRESULT STDMETHODCALLTYPE DropColumns(ULONG count, const ULONG* tags) override
    {
        if (count > 0 && !tags)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&] {
            m_core->Switches().DropColumns({tags, tags + count});
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE TellOfTablesOnly(BOOL on) override
    {
        m_core->Switches().tellsOfTablesOnly = on != FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ShuffleNotifications(ULONG seed) override
    {
        m_core->Switches().shuffleSeed = seed;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE HoldNotifications(BOOL on) override
    {
        m_core->Switches().holds = on != FALSE;
        m_core->TellListeners();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Deliver(ULONG number, ULONG* told) override
    {
        return told ? m_core->Deliver(number, *told) : MAPI_E_INVALID_PARAMETER;
    }
    HRESULT STDMETHODCALLTYPE FailRowReads(ULONG count) override
    {
        m_core->Switches().failingRowReads = count;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE HurrySteps(BOOL on) override
    {
        m_core->Switches().hurriesSteps = on != FALSE;
        return S_OK;
    }

private:
    const std::shared_ptr<StoreCore> m_core;
};

}  // namespace

void TestSwitches::DropColumns(std::vector<ULONG> tags) noexcept
{
    const MutexLock lock(lock_);
    dropped_ = std::move(tags);
}

void TestSwitches::TakeDropped(std::vector<ULONG>& columns) const
{
    const MutexLock lock(lock_);
    std::erase_if(columns, [this](ULONG column) QV_REQUIRES(lock_) {
        return std::any_of(dropped_.begin(), dropped_.end(),
                           [column](ULONG tag) { return PROP_ID(tag) == PROP_ID(column); });
    });
}

HRESULT GiveTestSwitches(std::shared_ptr<StoreCore> core, REFIID iid, LPUNKNOWN* object)
{
    const auto switches = MakeComObject<CStoreTestSwitches>(std::move(core));
    return switches ? switches->QueryInterface(iid, reinterpret_cast<void**>(object)) : E_OUTOFMEMORY;
}

}  // namespace quorvane
