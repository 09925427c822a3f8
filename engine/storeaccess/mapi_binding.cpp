#include "engine/storeaccess/mapi_binding.h"

#include <algorithm>
#include <atomic>
#include <string>

#include "engine/session/trace/trace.h"
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

using ComponentPath = std::array<char, kPathCapacity>;

bool IsEmpty(const MsiText& text) noexcept
{
    return text[0] == '\0';
}

// Asks for the component's path under one qualifier, null for any. Whether there is an answer.
bool AskForPath(FGetComponentPathFunction getPath, MailClientMsiValues& client, char* qualifier,
                ComponentPath& path)
{
    const BOOL known =
        getPath(client.component.data(), qualifier, path.data(), kPathCapacity, kInstallIfMissing);
    path.back() = '\0';
    return known && path[0] != '\0';
}

// What the last question left in `path` counts, whatever the answer was: a path that came with a refusal is
// tried as well.
void FindComponentPath(FGetComponentPathFunction getPath, ComponentPath& path)
{
    MailClientMsiValues client;
    ReadMailClientMsiValues(client);
    if (IsEmpty(client.component))
        return;
    bool found = false;
    if (!IsEmpty(client.applicationLanguage))
        found = AskForPath(getPath, client, client.applicationLanguage.data(), path);
    if (!found && !IsEmpty(client.officeLanguage))
        found = AskForPath(getPath, client, client.officeLanguage.data(), path);
    if (!found)
        AskForPath(getPath, client, nullptr, path);
}

Module LoadComponentLibrary(const Module& systemLibrary)
{
    Module component;
    const auto getPath = systemLibrary.Find<FGetComponentPathFunction>("FGetComponentPath");
    if (!getPath)
        return component;
    ComponentPath path{};
    FindComponentPath(getPath, path);
    if (path[0] != '\0')
        HR_IGNORE(component.Load(path.data()), "what can't be loaded gives way to the system's library");
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

void ReadMsiText(const RegistryKey& key, const char* name, MsiText& text) noexcept
{
    RegistryValue value;
    if (FAILED(key.Query(name, value)) || value.bytes.size() > text.size())
        return;
    std::copy(value.bytes.begin(), value.bytes.end(), text.begin());
    text.back() = '\0';
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
    RegistryValue name;
    if (FAILED(clients.Open(root, kMailClients)) || FAILED(clients.Query("", name)) || name.Text().empty())
        return false;
    try {
        return SUCCEEDED(key.Open(root, std::string(kMailClients) + '\\' + std::string(name.Text())));
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
    ReadMsiText(client, "MSIComponentID", values.component);
    ReadMsiText(client, "MSIApplicationLCID", values.applicationLanguage);
    ReadMsiText(client, "MSIOfficeLCID", values.officeLanguage);
}

}  // namespace quorvane
