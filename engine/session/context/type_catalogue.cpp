#include "engine/session/context/type_catalogue.h"

#include <algorithm>

#include "engine/session/context/operations.h"

namespace quorvane {

namespace {

constexpr LibraryType kLibrary{
    &LIBID_quorvane3, OLESTR("quorvane3"), OLESTR("quorvane 3.0 Type Library"), 1, 0, 1033};

constexpr EnumerationValue kActions[] = {
    {OLESTR("qv_ac_NoAction"), qv_ac_NoAction},
    {OLESTR("qv_ac_Added"), qv_ac_Added},
    {OLESTR("qv_ac_Modified"), qv_ac_Modified},
    {OLESTR("qv_ac_Deleted"), qv_ac_Deleted},
};

constexpr EnumerationValue kResumes[] = {
    {OLESTR("qv_rs_Both"), qv_rs_Both},
    {OLESTR("qv_rs_Resend"), qv_rs_Resend},
    {OLESTR("qv_rs_Receive"), qv_rs_Receive},
};

constexpr EnumerationType kEnumerations[] = {
    {OLESTR("qv_Action"), kActions},
    {OLESTR("qv_Resume"), kResumes},
};

template <class... Parameters, class... Arguments>
constexpr Operation Event(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    return Declared<Parameters...>(OperationKind::Method, id, name, arguments...);
}

constexpr Operation ItemEvent(DISPID id, const OLECHAR* name)
{
    return Event<IItem*, VARIANT_BOOL*>(id, name, In(OLESTR("Item")), InOut(OLESTR("ignoreEvent")));
}

// An event of an item with a text beside it.
constexpr Operation TextEvent(DISPID id, const OLECHAR* name, const OLECHAR* text)
{
    return Event<IItem*, BSTR, VARIANT_BOOL*>(id, name, In(OLESTR("Item")), In(text),
                                              InOut(OLESTR("ignoreEvent")));
}

constexpr Operation TextProperty(DISPID id, const OLECHAR* name)
{
    return Declared<BSTR*>(OperationKind::Get, id, name, Result(OLESTR("pVal")));
}

// Nothing has the identifier 6.
constexpr Operation kExtOperations[] = {
    TextEvent(kOnItemResend, OLESTR("onItemResend"), OLESTR("JobID")),
    Event<IFolder*, BSTR>(kOnFolderReceived, OLESTR("onFolderReceived"), In(OLESTR("Folder")),
                          In(OLESTR("Tag"))),
    ItemEvent(kOnItemAdded, OLESTR("onItemAdded")),
    ItemEvent(kOnItemChanged, OLESTR("onItemChanged")),
    ItemEvent(kOnItemDeleted, OLESTR("onItemDeleted")),
    TextEvent(kOnItemReceived, OLESTR("onItemReceived"), OLESTR("Tag")),
    Event<BSTR, BSTR>(kOnPostprocess, OLESTR("onPostprocess"), In(OLESTR("ItemID")), In(OLESTR("StoreID"))),
    TextProperty(kDatabasePath, OLESTR("DatabasePath")),
    TextProperty(kProductCode, OLESTR("ProductCode")),
};

constexpr Operation kRestrictOperations[] = {
    Event<IDispatch*>(kRestrictTable, OLESTR("RestrictTable"), In(OLESTR("Table"))),
};

constexpr Operation kProgressOperations[] = {
    Event<LONG, LONG>(kSetLimits, OLESTR("SetLimits"), In(OLESTR("Min")), In(OLESTR("Max"))),
    Event<LONG, LONG>(kProgress, OLESTR("Progress"), In(OLESTR("Count")), In(OLESTR("Total"))),
};

constexpr Operation kFolderEvents[] = {
    Event<>(kResendComplete, OLESTR("ResendComplete")),
};

template <class Interface>
constexpr InterfaceType Dual(const IID& id, const OLECHAR* name)
{
    return {&id, name, InterfaceKind::Dual, OperationsOf<Interface>::kTable};
}

constexpr InterfaceType kInterfaces[] = {
    Dual<ILibrary>(IID_ILibrary, OLESTR("ILibrary")),
    Dual<ISession2>(IID_ISession2, OLESTR("ISession2")),
    Dual<IFolders>(IID_IFolders, OLESTR("IFolders")),
    Dual<IFolder>(IID_IFolder, OLESTR("IFolder")),
    Dual<IItem>(IID_IItem, OLESTR("IItem")),
    Dual<IStorageFiles>(IID_IStorageFiles, OLESTR("IStorageFiles")),
    Dual<IStorageFile>(IID_IStorageFile, OLESTR("IStorageFile")),
    Dual<IOptions>(IID_IOptions, OLESTR("IOptions")),
    Dual<IOption>(IID_IOption, OLESTR("IOption")),
    Dual<IMsgStores>(IID_IMsgStores, OLESTR("IMsgStores")),
    Dual<IItemsCol>(IID_IItemsCol, OLESTR("IItemsCol")),
    Dual<IMyAdviseSink>(IID_IMyAdviseSink, OLESTR("IMyAdviseSink")),
    Dual<IMDBImport>(IID_IMDBImport, OLESTR("IMDBImport")),
    {&DIID_IQuorvaneExt, OLESTR("IQuorvaneExt"), InterfaceKind::Callback, kExtOperations},
    {&DIID_IQuorvaneRestrict, OLESTR("IQuorvaneRestrict"), InterfaceKind::Callback, kRestrictOperations},
    {&DIID_IQuorvaneProgress, OLESTR("IQuorvaneProgress"), InterfaceKind::Callback, kProgressOperations},
    {&DIID__IFolderEvents, OLESTR("_IFolderEvents"), InterfaceKind::Source, kFolderEvents},
    {&DIID__ISession2Events, OLESTR("_ISession2Events"), InterfaceKind::Source, {}},
    {&DIID__IMsgStoresEvents, OLESTR("_IMsgStoresEvents"), InterfaceKind::Source, {}},
};

}  // namespace

const LibraryType& TypeLibrary() noexcept
{
    return kLibrary;
}

std::span<const EnumerationType> EnumerationTypes() noexcept
{
    return kEnumerations;
}

std::span<const InterfaceType> InterfaceTypes() noexcept
{
    return kInterfaces;
}

const InterfaceType* FindInterfaceType(REFIID id) noexcept
{
    const auto found = std::ranges::find_if(
        kInterfaces, [&](const InterfaceType& each) { return IsEqualIID(*each.id, id); });
    return found == std::end(kInterfaces) ? nullptr : &*found;
}

}  // namespace quorvane
