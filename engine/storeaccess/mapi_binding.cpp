#include "engine/storeaccess/mapi_binding.h"

#include "platform/com/mutex.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

constexpr char kSystemLibrary[] = "mapi32.dll";
constexpr char kMailClients[] = "Software\\Clients\\Mail";
constexpr DWORD kPathCapacity = 260;
constexpr BOOL kInstallIfMissing = 1;

using FGetComponentPathFunction = BOOL(STDAPICALLTYPE*)(LPSTR component, LPSTR qualifier, LPSTR path,
                                                        DWORD pathCapacity, BOOL install);

constinit std::array<std::atomic<void*>, kMapiFunctionCount> slots{};

std::atomic<void*>& SlotOf(MapiFunction function) noexcept
{
    return slots[static_cast<size_t>(function)];
}

// Asks for the component's path under one qualifier, null for any.
std::string ComponentPath(FGetComponentPathFunction getPath, std::string component, std::string* qualifier)
{
    std::array<char, kPathCapacity> path{};
    if (!getPath(component.data(), qualifier ? qualifier->data() : nullptr, path.data(), kPathCapacity,
                 kInstallIfMissing))
        return {};
    path.back() = '\0';
    return path.data();
}

std::string FindComponentPath(FGetComponentPathFunction getPath)
{
    MailClientMsiValues client;
    ReadMailClientMsiValues(client);
    if (client.component.empty())
        return {};
    std::string path;
    if (!client.applicationLanguage.empty())
        path = ComponentPath(getPath, client.component, &client.applicationLanguage);
    if (path.empty() && !client.officeLanguage.empty())
        path = ComponentPath(getPath, client.component, &client.officeLanguage);
    if (path.empty())
        path = ComponentPath(getPath, client.component, nullptr);
    return path;
}

Module LoadComponentLibrary(const Module& systemLibrary)
{
    Module component;
    const auto getPath = systemLibrary.Find<FGetComponentPathFunction>("FGetComponentPath");
    if (!getPath)
        return component;
    const std::string path = FindComponentPath(getPath);
    if (!path.empty() && FAILED(component.Load(path)))
        return Module();
    return component;
}

void FillSlots(const Module& library) noexcept
{
    for (const MapiBindingRow& row : MapiBindingTable) {
        std::atomic<void*>& slot = SlotOf(row.slot);
        if (!slot.load(std::memory_order_acquire))
            slot.store(library.Find(row.exportName), std::memory_order_release);
    }
}

void ReadText(const RegistryKey& key, const char* name, std::string& text) noexcept
{
    RegistryValue value;
    if (FAILED(key.Query(name, value)))
        return;
    try {
        text = value.Text();
    } catch (...) {
        text.clear();
    }
}

}  // namespace

// Undecorated names come first for the two hexadecimal functions, and the last three exist in decorated form
// alone: on a library that lacks the decorated names they stay unbound.
constinit const std::array<MapiBindingRow, 58> MapiBindingTable = {{
    {MapiFunction::MAPIAllocateBuffer, "MAPIAllocateBuffer"},
    {MapiFunction::MAPIAllocateMore, "MAPIAllocateMore"},
    {MapiFunction::MAPIFreeBuffer, "MAPIFreeBuffer"},
    {MapiFunction::HrGetOneProp, "HrGetOneProp@12"},
    {MapiFunction::HrGetOneProp, "HrGetOneProp"},
    {MapiFunction::HrSetOneProp, "HrSetOneProp@8"},
    {MapiFunction::HrSetOneProp, "HrSetOneProp"},
    {MapiFunction::MAPIInitialize, "MAPIInitialize"},
    {MapiFunction::MAPIUninitialize, "MAPIUninitialize"},
    {MapiFunction::FreeProws, "FreeProws@4"},
    {MapiFunction::FreeProws, "FreeProws"},
    {MapiFunction::PpropFindProp, "PpropFindProp@12"},
    {MapiFunction::PpropFindProp, "PpropFindProp"},
    {MapiFunction::ScDupPropset, "ScDupPropset@16"},
    {MapiFunction::ScDupPropset, "ScDupPropset"},
    {MapiFunction::ScCountProps, "ScCountProps@12"},
    {MapiFunction::ScCountProps, "ScCountProps"},
    {MapiFunction::ScCopyProps, "ScCopyProps@16"},
    {MapiFunction::ScCopyProps, "ScCopyProps"},
    {MapiFunction::OpenIMsgOnIStg, "OpenIMsgOnIStg@44"},
    {MapiFunction::OpenIMsgOnIStg, "OpenIMsgOnIStg"},
    {MapiFunction::MAPIGetDefaultMalloc, "MAPIGetDefaultMalloc@0"},
    {MapiFunction::MAPIGetDefaultMalloc, "MAPIGetDefaultMalloc"},
    {MapiFunction::CloseIMsgSession, "CloseIMsgSession@4"},
    {MapiFunction::CloseIMsgSession, "CloseIMsgSession"},
    {MapiFunction::OpenIMsgSession, "OpenIMsgSession@12"},
    {MapiFunction::OpenIMsgSession, "OpenIMsgSession"},
    {MapiFunction::HrQueryAllRows, "HrQueryAllRows@24"},
    {MapiFunction::HrQueryAllRows, "HrQueryAllRows"},
    {MapiFunction::MAPIOpenFormMgr, "MAPIOpenFormMgr"},
    {MapiFunction::RTFSync, "RTFSync"},
    {MapiFunction::HrSetOneProp, "HrSetOneProp@8"},
    {MapiFunction::HrSetOneProp, "HrSetOneProp"},
    {MapiFunction::FreePadrlist, "FreePadrlist@4"},
    {MapiFunction::FreePadrlist, "FreePadrlist"},
    {MapiFunction::PropCopyMore, "PropCopyMore@16"},
    {MapiFunction::PropCopyMore, "PropCopyMore"},
    {MapiFunction::WrapCompressedRTFStream, "WrapCompressedRTFStream"},
    {MapiFunction::WrapStoreEntryID, "WrapStoreEntryID@24"},
    {MapiFunction::WrapStoreEntryID, "WrapStoreEntryID"},
    {MapiFunction::CreateIProp, "CreateIProp@24"},
    {MapiFunction::CreateIProp, "CreateIProp"},
    {MapiFunction::CreateTable, "CreateTable@36"},
    {MapiFunction::CreateTable, "CreateTable"},
    {MapiFunction::MAPILogonEx, "MAPILogonEx"},
    {MapiFunction::MAPIAdminProfiles, "MAPIAdminProfiles"},
    {MapiFunction::HrValidateIPMSubtree, "HrValidateIPMSubtree@20"},
    {MapiFunction::HrValidateIPMSubtree, "HrValidateIPMSubtree"},
    {MapiFunction::MAPIOpenLocalFormContainer, "MAPIOpenLocalFormContainer"},
    {MapiFunction::HrDispatchNotifications, "HrDispatchNotifications@4"},
    {MapiFunction::HrDispatchNotifications, "HrDispatchNotifications"},
    {MapiFunction::FBinFromHex, "FBinFromHex"},
    {MapiFunction::FBinFromHex, "FBinFromHex@8"},
    {MapiFunction::HexFromBin, "HexFromBin"},
    {MapiFunction::HexFromBin, "HexFromBin@12"},
    {MapiFunction::ScCountNotifications, "ScCountNotifications@12"},
    {MapiFunction::ScCopyNotifications, "ScCopyNotifications@16"},
    {MapiFunction::HrThisThreadAdviseSink, "HrThisThreadAdviseSink@8"},
}};

void* BoundMapiFunction(MapiFunction function) noexcept
{
    return SlotOf(function).load(std::memory_order_acquire);
}

bool BindMapiLibrary() noexcept
{
    static Mutex binding;
    const MutexLock lock(binding);
    try {
        std::string directory;
        if (FAILED(SystemDirectory(directory)))
            return false;
        Module systemLibrary;
        if (FAILED(systemLibrary.Load(JoinPath(directory, kSystemLibrary))))
            return false;
        const Module component = LoadComponentLibrary(systemLibrary);
        FillSlots(component.IsLoaded() ? component : systemLibrary);
        return true;
    } catch (...) {
        return false;
    }
}

bool FindDefaultMailClientKey(RegistryHive root, RegistryKey& key) noexcept
{
    key.Close();
    RegistryKey clients;
    if (FAILED(clients.Open(root, kMailClients)))
        return false;
    std::string name;
    ReadText(clients, "", name);
    if (name.empty())
        return false;
    try {
        return SUCCEEDED(key.Open(root, std::string(kMailClients) + '\\' + name));
    } catch (...) {
        return false;
    }
}

void ReadMailClientMsiValues(MailClientMsiValues& values) noexcept
{
    values = {};
    RegistryKey client;
    if (!FindDefaultMailClientKey(RegistryHive::CurrentUser, client) &&
        !FindDefaultMailClientKey(RegistryHive::LocalMachine, client))
        return;
    ReadText(client, "MSIComponentID", values.component);
    ReadText(client, "MSIApplicationLCID", values.applicationLanguage);
    ReadText(client, "MSIOfficeLCID", values.officeLanguage);
}

}  // namespace quorvane
