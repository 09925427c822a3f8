#include "engine/transfer/storage_processor.h"

#include "engine/folders/folder.h"
#include "engine/items/item.h"
#include "engine/items/message_storage.h"
#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/session/context/addin.h"
#include "engine/session/trace/verbose_trace.h"
#include "engine/storeaccess/objects_cache.h"
#include "engine/transfer/element_names.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/received_item_call.h"
#include "engine/transfer/storage_path.h"
#include "platform/cfb/stg.h"
#include "platform/com/apartment.h"
#include "platform/file/path.h"

namespace quorvane {

namespace {

// Around a job, in the log of a build that follows the work.
constexpr char kRule[] = "-------------------------------\n";

HRESULT OpenChild(IStorage& parent, const OLECHAR* name, ComPtr<IStorage>& child) noexcept
{
    return parent.OpenStorage(name, nullptr, kOpenMode, nullptr, 0, child.Put());
}

// What becomes of a job whose file doesn't open: it ends for good where there is nothing to open, or damage;
// any other failure may pass, and leaves file and row to the next start.
HRESULT OrLater(HRESULT hr) noexcept
{
    const bool isNothing = hr == STG_E_FILENOTFOUND || hr == STG_E_PATHNOTFOUND || hr == STG_E_INVALIDNAME;
    return SUCCEEDED(hr) || isNothing || IsDamage(hr) ? hr : E_ABORT;
}

}  // namespace

// What DoItems needs for all of its items.
struct CStorageProcessor::ItemLoop {
    ItemLoop(SessionContext& session, Event& stopEvent) noexcept
        : stop(stopEvent), cache(session.MapiSession())
    {}

    HRESULT Prepare(SessionContext& session, IStorage& items) noexcept
    {
        HR_TRY_QUIET(session.Database().OpenSession(database));
        HR_TRY_QUIET(addin.Connect(session));
        return items.EnumElements(0, nullptr, 0, elements.Put());
    }

    Event& stop;
    DatabaseSession database;
    Addin addin;
    CMapiObjectsCache cache;
    ReceivedItemHelper helper;
    ComPtr<IEnumSTATSTG> elements;
};

DWORD CStorageProcessor::ThreadProc(Event& stop)
{
    // The host is called through the global table.
    const FreeThreadScope freeThread;
    const Traced traced{"CStorageProcessor::ThreadProc"};
    TraceVerbose(traced, kRule);
    TraceVerbose(traced, "Processing new storage file\n");
    bool undone = false;
    const HRESULT hr = ProcessPackage(stop, undone);
    if (hr != E_ABORT)
        DeleteFileAndRow();
    TraceVerbose(traced, "Processing ended\n");
    TraceVerbose(traced, kRule);
    return undone ? kUndone : 0;
}

// E_ABORT: file and row stay, and the next start finds them.
HRESULT CStorageProcessor::ProcessPackage(Event& stop, bool& undone) noexcept
{
    ComPtr<IStorage> root;
    HR_TRY_QUIET(
        OrLater(StgOpenStorage(m_bstrPath.View().data(), nullptr, kOpenMode, nullptr, 0, root.Put())));
    ComPtr<IStorage> version;
    HR_TRY_QUIET(OrLater(OpenChild(*root, kVersionName, version)));

    ComPtr<IStorage> folders;
    if (SUCCEEDED(OpenChild(*version, kFoldersName, folders)))
        undone = DoFolders(folders.Get()) == S_FALSE;
    ComPtr<IStorage> items;
    HR_TRY_QUIET(OrLater(OpenChild(*version, kItemsName, items)));
    const HRESULT hr = DoItems(items.Get(), stop);
    undone = undone || hr == S_FALSE;
    return hr;
}

void CStorageProcessor::DeleteFileAndRow() noexcept
{
    const Traced traced{"CStorageProcessor::ThreadProc"};
    try {
        HR_IGNORE(RemoveFile(Narrow(m_bstrPath.View())), "the row goes whether or not there was a file");
    } catch (const std::bad_alloc&) {
        traced(E_OUTOFMEMORY);
        return;
    }
    DatabaseSession session;
    if (FAILED(traced(m_pSession->Database().OpenSession(session))))
        return;
    StatementParameters parameters;
    parameters.Text(width::kFinishedPath, m_bstrPath.Get());
    HR_IGNORE(TracedStatement(traced, session.Execute(statements::kDeleteReceiveJob, parameters)),
              "the row stays, and a later start removes it");
}

HRESULT CStorageProcessor::DoFolders(IStorage* folders) noexcept
{
    const Traced traced{"CStorageProcessor::DoFolders"};
    Addin addin;
    HR_TRY(traced, addin.Connect(*m_pSession));
    ComPtr<IEnumSTATSTG> elements;
    HR_TRY(traced, folders->EnumElements(0, nullptr, 0, elements.Put()));

    size_t undone = 0;
    ElementEntry entry;
    while (entry.FetchFrom(*elements)) {
        ComPtr<IStorage> element;
        if (!entry.IsStorage() || FAILED(traced(OpenChild(*folders, entry.Name(), element))))
            continue;
        ++undone;
        if (SUCCEEDED(traced(ShowFolder(addin, folders, entry.Name(), element.Get()))))
            --undone;
    }
    return undone ? S_FALSE : S_OK;
}

// The folder isn't entered in any collection: what becomes of it is the host's decision.
HRESULT CStorageProcessor::ShowFolder(const Addin& addin, IStorage* folders, const OLECHAR* name,
                                      IStorage* element) noexcept
{
    const ComPtr<CFolder> folder = MakeComObject<CFolder>(m_pSession);
    if (!folder)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(folder->Load(element));
    HR_TRY_QUIET(addin.OnFolderReceived(folder.Get(), m_bstrTag.Get()));
    return folders->DestroyElement(name);
}

HRESULT CStorageProcessor::DoItems(IStorage* items, Event& stop) noexcept
{
    const Traced traced{"CStorageProcessor::DoItems"};
    ItemLoop loop(*m_pSession, stop);
    HR_TRY(traced, loop.Prepare(*m_pSession, *items));

    size_t undone = 0;
    ElementEntry entry;
    while (entry.FetchFrom(*loop.elements)) {
        if (stop.IsSet())
            return E_ABORT;
        ComPtr<IStorage> element;
        if (!entry.IsStorage() || FAILED(traced(OpenChild(*items, entry.Name(), element))))
            continue;
        ++undone;
        if (SUCCEEDED(traced(ProcessItem(loop, items, entry.Name(), element.Get()))))
            --undone;
    }
    return undone ? S_FALSE : S_OK;
}

// An item of a folder that isn't shared here is dropped without a word to the host.
HRESULT CStorageProcessor::ProcessItem(ItemLoop& loop, IStorage* items, const OLECHAR* name,
                                       IStorage* element) noexcept
{
    const ComPtr<CItem> item = MakeComObject<CItem>(m_pSession);
    if (!item)
        return E_OUTOFMEMORY;
    const HRESULT loaded = item->Load(element, loop.database);
    if (FAILED(loaded) && loaded != DISP_E_MEMBERNOTFOUND)
        return loaded;
    if (!item->m_bstrFolderEntryID.IsEmpty()) {
        HR_TRY_QUIET(loaded);
        TraceVerbose(Traced{"CStorageProcessor::DoItems"}, "Receiving Item: %s\n", item->m_bstrID);
        bool ignore = false;
        HR_TRY_QUIET(AskHost(loop, *item.Get(), ignore));
        if (!ignore)
            HR_TRY_QUIET(item->Submit(loop.database, loop.cache));
    }
    return items->DestroyElement(name);
}

HRESULT CStorageProcessor::AskHost(ItemLoop& loop, CItem& item, bool& ignore) noexcept
{
    std::shared_ptr<ReceivedItemCall> call;
    HR_TRY_QUIET(ReceivedItemCall::Start(loop.helper, loop.addin, ComPtr<IItem>(&item), m_bstrTag, call));
    return call->Wait(loop.stop, ignore);
}

}  // namespace quorvane
