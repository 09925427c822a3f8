// storeaccess/mapi_binding.h: how the MAPI library of the default mail client is found and bound.
//
// The system's "mapi32.dll" is asked, through its FGetComponentPath, where the component of the default mail
// client lies; the component's own library is bound if it can be had, the system's otherwise.
#ifndef QUORVANE_ENGINE_STOREACCESS_MAPI_BINDING_H_
#define QUORVANE_ENGINE_STOREACCESS_MAPI_BINDING_H_

#include <array>

#include "platform/module/module.h"
#include "platform/registry/registry.h"

namespace quorvane {

// The functions that are bound. Several export names may lead to one of them.
enum class MapiFunction : unsigned char {
    MAPIAllocateBuffer,
    MAPIAllocateMore,
    MAPIFreeBuffer,
    HrGetOneProp,
    HrSetOneProp,
    MAPIInitialize,
    MAPIUninitialize,
    FreeProws,
    PpropFindProp,
    ScDupPropset,
    ScCountProps,
    ScCopyProps,
    OpenIMsgOnIStg,
    MAPIGetDefaultMalloc,
    CloseIMsgSession,
    OpenIMsgSession,
    HrQueryAllRows,
    MAPIOpenFormMgr,
    RTFSync,
    FreePadrlist,
    PropCopyMore,
    WrapCompressedRTFStream,
    WrapStoreEntryID,
    CreateIProp,
    CreateTable,
    MAPILogonEx,
    MAPIAdminProfiles,
    HrValidateIPMSubtree,
    MAPIOpenLocalFormContainer,
    HrDispatchNotifications,
    FBinFromHex,
    HexFromBin,
    ScCountNotifications,
    ScCopyNotifications,
    HrThisThreadAdviseSink,
};
inline constexpr size_t kMapiFunctionCount = static_cast<size_t>(MapiFunction::HrThisThreadAdviseSink) + 1;

struct MapiBindingRow {
    MapiFunction slot;
    const char* exportName;
};

// Tried from the top; a row whose slot is filled already is passed over. A name with an at sign and a number
// is the decorated form of 32-bit libraries.
extern const std::array<MapiBindingRow, 58> MapiBindingTable;

// The function bound to a slot, null when none is.
void* BoundMapiFunction(MapiFunction function) noexcept;

// Loads the libraries and fills every empty slot that it finds a name for. True if either library was loaded.
// Threads that come at the same time bind one after the other; a filled slot never changes.
bool BindMapiLibrary() noexcept;

// Opens the key of the default mail client, "Software\Clients\Mail\<name>", where the name is the default
// value of "Software\Clients\Mail". False: there is no such key, or no name.
bool FindDefaultMailClientKey(RegistryHive root, RegistryKey& key) noexcept;

// The bytes of a registry value as FGetComponentPath takes them, zeros to the end. A list of texts keeps the
// zeros between them.
using MsiText = std::array<char, 1024>;

// What the default mail client says about its MAPI component. A value that is missing, or longer than the
// place for it, is an empty text.
struct MailClientMsiValues {
    MsiText component{};            // "MSIComponentID"
    MsiText applicationLanguage{};  // "MSIApplicationLCID"
    MsiText officeLanguage{};       // "MSIOfficeLCID"
};

// Of the client under the user's hive; the machine's hive is read only when the user's names none that
// exists.
void ReadMailClientMsiValues(MailClientMsiValues& values) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_MAPI_BINDING_H_
