#include "engine/session/class_catalogue.h"

#include "engine/change/items_col.h"
#include "engine/folders/folder.h"
#include "engine/folders/folders.h"
#include "engine/items/item.h"
#include "engine/monitor/advise_sink.h"
#include "engine/monitor/msg_stores.h"
#include "engine/session/detached_context.h"
#include "engine/session/library.h"
#include "engine/session/mdb_import.h"
#include "engine/session/options/options.h"
#include "engine/transfer/storage_file.h"
#include "engine/transfer/storage_files.h"
#include "platform/com/class_factory.h"

namespace quorvane {

namespace {

// A class that works without a session.
template <class Class>
HRESULT MakeAlone(REFIID riid, void** object) noexcept
{
    const auto made = MakeComObject<Class>();
    return made ? made->QueryInterface(riid, object) : E_OUTOFMEMORY;
}

// A class that wants a session.
template <class Class>
HRESULT MakeDetached(REFIID riid, void** object) noexcept
{
    DetachedContext* const nobody = DetachedContext::Instance();
    const auto made = nobody ? MakeComObject<Class>(nobody) : ComPtr<Class>();
    return made ? made->QueryInterface(riid, object) : E_OUTOFMEMORY;
}

constexpr OLECHAR kApartmentThreaded[] = OLESTR("Apartment");
constexpr OLECHAR kFreeThreaded[] = OLESTR("Free");

constexpr CatalogueEntry kCatalogue[] = {
    {&CLSID_Library, OLESTR("Library"), &IID_ILibrary, nullptr, kApartmentThreaded, true,
     &MakeAlone<CLibrary>},
    {&CLSID_Session2, OLESTR("Session2"), &IID_ISession2, &DIID__ISession2Events, kApartmentThreaded, false,
     &MakeAlone<CSession2>},
    {&CLSID_Folders, OLESTR("Folders"), &IID_IFolders, nullptr, kApartmentThreaded, false,
     &MakeDetached<CFolders>},
    {&CLSID_Folder, OLESTR("Folder"), &IID_IFolder, &DIID__IFolderEvents, kFreeThreaded, false,
     &MakeDetached<CFolder>},
    {&CLSID_Item, OLESTR("Item"), &IID_IItem, nullptr, kApartmentThreaded, false, &MakeDetached<CItem>},
    {&CLSID_StorageFiles, OLESTR("StorageFiles"), &IID_IStorageFiles, nullptr, kApartmentThreaded, false,
     &MakeDetached<CStorageFiles>},
    {&CLSID_StorageFile, OLESTR("StorageFile"), &IID_IStorageFile, nullptr, kApartmentThreaded, false,
     &MakeDetached<CStorageFile>},
    {&CLSID_MsgStores, OLESTR("MsgStores"), &IID_IMsgStores, &DIID__IMsgStoresEvents, kFreeThreaded, false,
     &MakeDetached<CMsgStores>},
    {&CLSID_AdviseSink, OLESTR("AdviseSink"), &IID_IMyAdviseSink, nullptr, kApartmentThreaded, true,
     &MakeAlone<CAdviseSink>},
    {&CLSID_Options, OLESTR("Options"), &IID_IOptions, nullptr, kApartmentThreaded, true,
     &MakeAlone<COptions>},
    {&CLSID_Option, OLESTR("Option"), &IID_IOption, nullptr, kApartmentThreaded, true, &MakeAlone<COption>},
    {&CLSID_MDBImport, OLESTR("MDBImport"), &IID_IMDBImport, nullptr, kApartmentThreaded, true,
     &MakeAlone<CMDBImport>},
    {&CLSID_ItemsCol, OLESTR("ItemsCol"), &IID_IItemsCol, nullptr, kApartmentThreaded, true,
     &MakeAlone<CItemsCol>},
};

// Makes objects of one class of the catalogue.
class CCatalogueFactory final : public ComObject<CCatalogueFactory, IClassFactory> {
public:
    explicit CCatalogueFactory(const CatalogueEntry& entry) noexcept : m_Entry(entry) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        return outer ? CLASS_E_NOAGGREGATION : m_Entry.make(riid, object);
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock)
            ServerLocks::Add();
        else
            ServerLocks::Remove();
        return S_OK;
    }

private:
    const ServerLockScope m_ServerLock;
    const CatalogueEntry& m_Entry;
};

}  // namespace

std::span<const CatalogueEntry> ClassCatalogue() noexcept
{
    return kCatalogue;
}

HRESULT MakeClassFactory(REFCLSID clsid, REFIID riid, void** factory) noexcept
{
    if (!factory)
        return E_POINTER;
    *factory = nullptr;
    for (const CatalogueEntry& entry : kCatalogue) {
        if (!IsEqualCLSID(clsid, *entry.clsid))
            continue;
        const auto made = MakeComObject<CCatalogueFactory>(entry);
        return made ? made->QueryInterface(riid, factory) : E_OUTOFMEMORY;
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

}  // namespace quorvane
