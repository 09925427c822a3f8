// session/context/operations.h: the operations of every dual interface, as a late-bound caller sees them.
//
// One table an interface, in the order of the slots, for platform/com/dispatch.h: a class that lists
// DispatchImpl<IFolder> answers GetIDsOfNames and Invoke from the table here. The identifiers are what hosts
// bind to and never change; docs/object-model.txt lists them all.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_OPERATIONS_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_OPERATIONS_H_

#include <array>

#include "platform/com/dispatch.h"
#include "quorvane3/object_model.h"

namespace quorvane {

// The standard collection members, which every collection has under the same identifiers.
inline constexpr DISPID kDispidNewEnum = -4;
inline constexpr DISPID kDispidItem = 0;
inline constexpr DISPID kDispidCount = 1;

template <>
struct OperationsOf<ILibrary> {
    static constexpr Operation kTable[] = {
        Method<&ILibrary::Logon>(1, OLESTR("Logon"), In(OLESTR("Addin")), Result(OLESTR("Session"))),
        Get<&ILibrary::get_Session>(2, OLESTR("Session")),
        Method<&ILibrary::ForceLogoff>(3, OLESTR("ForceLogoff")),
        Method<&ILibrary::Test>(4, OLESTR("Test")),
    };
};

template <>
struct OperationsOf<ISession2> {
    static constexpr Operation kTable[] = {
        Get<&ISession2::get_Folders>(1, OLESTR("Folders")),
        Get<&ISession2::get_StorageFiles>(2, OLESTR("StorageFiles")),
        Method<&ISession2::ProcessStorageFile>(3, OLESTR("ProcessStorageFile"), In(OLESTR("Path")),
                                               In(OLESTR("Tag"))),
        Method<&ISession2::ResumeJobs>(4, OLESTR("ResumeJobs"), In(OLESTR("Flags"))),
        Method<&ISession2::LockItem>(5, OLESTR("LockItem"), In(OLESTR("EntryID")), In(OLESTR("StoreID")),
                                     Optional(OLESTR("AutoUnlock"), VARIANT_TRUE)),
        Method<&ISession2::UnlockItem>(6, OLESTR("UnlockItem"), In(OLESTR("ItemID")), In(OLESTR("StoreID"))),
        Method<&ISession2::IsItemLocked>(7, OLESTR("IsItemLocked"), In(OLESTR("EntryID")),
                                         In(OLESTR("StoreID")), Result(OLESTR("rVal"))),
        Method<&ISession2::DropLock>(8, OLESTR("DropLock"), In(OLESTR("EntryID")), In(OLESTR("StoreID"))),
        Method<&ISession2::GetItemFromID>(9, OLESTR("GetItemFromID"), Optional(OLESTR("ID")),
                                          Optional(OLESTR("EntryID")), Optional(OLESTR("StoreID")),
                                          Result(OLESTR("pVal"))),
        Method<&ISession2::ImportItem>(10, OLESTR("ImportItem"), In(OLESTR("ID")), In(OLESTR("EntryID")),
                                       In(OLESTR("StoreID"))),
        Method<&ISession2::CancelResend>(11, OLESTR("CancelResend"), Optional(OLESTR("ID"))),
        Get<&ISession2::get_Options>(12, OLESTR("Options")),
        Get<&ISession2::get_DBPath>(15, OLESTR("DBPath")),
        Method<&ISession2::DeleteItem>(13, OLESTR("DeleteItem"), In(OLESTR("ID")))
            .WithHelp(OLESTR("method DeleteItem. Removes information about item from Quorvane database")),
        Get<&ISession2::get_Raw>(14, OLESTR("Raw")),
    };
};

template <>
struct OperationsOf<IFolders> {
    static constexpr Operation kTable[] = {
        Get<&IFolders::get__NewEnum>(kDispidNewEnum, OLESTR("_NewEnum")),
        Get<&IFolders::get_Item>(kDispidItem, OLESTR("Item"), In(OLESTR("Index")), Result(OLESTR("pvar"))),
        Get<&IFolders::get_Count>(kDispidCount, OLESTR("Count")),
        Method<&IFolders::Add>(2, OLESTR("Add"), In(OLESTR("EntryID")), In(OLESTR("StoreID")),
                               Optional(OLESTR("ID")), Optional(OLESTR("ProgressBar")),
                               Result(OLESTR("pVal"))),
        Method<&IFolders::Remove>(3, OLESTR("Remove"), In(OLESTR("Index"))),
        Method<&IFolders::Find>(4, OLESTR("Find"), Optional(OLESTR("ID")), Optional(OLESTR("EntryID")),
                                Optional(OLESTR("StoreID")), Result(OLESTR("pVal"))),
    };
};

template <>
struct OperationsOf<IFolder> {
    static constexpr Operation kTable[] = {
        Get<&IFolder::get_EntryID>(1, OLESTR("EntryID")),
        Put<&IFolder::put_EntryID>(1, OLESTR("EntryID")),
        Get<&IFolder::get_Raw>(2, OLESTR("Raw")),
        Get<&IFolder::get_CustomInfo>(3, OLESTR("CustomInfo")),
        Put<&IFolder::put_CustomInfo>(3, OLESTR("CustomInfo")),
        Method<&IFolder::Resend>(4, OLESTR("Resend"), In(OLESTR("Recipients")), Optional(OLESTR("JobID")),
                                 Optional(OLESTR("resendAll")), Optional(OLESTR("ProgressBar"))),
        Get<&IFolder::get_StoreID>(5, OLESTR("StoreID")),
        Put<&IFolder::put_StoreID>(5, OLESTR("StoreID")),
        Method<&IFolder::Send>(6, OLESTR("Send"), Optional(OLESTR("Recipients"))),
        Get<&IFolder::get_ID>(7, OLESTR("ID")),
        Put<&IFolder::put_ID>(7, OLESTR("ID")),
        Method<&IFolder::Validate>(8, OLESTR("Validate")),
        Method<&IFolder::CreateItem>(9, OLESTR("CreateItem"), In(OLESTR("Stream")), Optional(OLESTR("ID")),
                                     Result(OLESTR("pVal"))),
        Get<&IFolder::get_IgnoreEvents>(10, OLESTR("IgnoreEvents")),
        Put<&IFolder::put_IgnoreEvents>(10, OLESTR("IgnoreEvents")),
        Get<&IFolder::get_Options>(11, OLESTR("Options")),
        Method<&IFolder::OpenStore>(12, OLESTR("OpenStore"), In(OLESTR("Flags")), Result(OLESTR("pStore"))),
        Method<&IFolder::ResendEx>(13, OLESTR("ResendEx"), In(OLESTR("Recipients")),
                                   In(OLESTR("Restriction")), Optional(OLESTR("resendAll")),
                                   Optional(OLESTR("JobID")), Optional(OLESTR("ProgressBar"))),
        Get<&IFolder::get_Restriction>(14, OLESTR("Restriction")),
        Put<&IFolder::put_Restriction>(14, OLESTR("Restriction")),
    };
};

template <>
struct OperationsOf<IItem> {
    static constexpr Operation kTable[] = {
        Get<&IItem::get_ID>(1, OLESTR("ID")),
        Put<&IItem::put_ID>(1, OLESTR("ID")),
        Get<&IItem::get_ExcludedProperties>(2, OLESTR("ExcludedProperties")),
        Put<&IItem::put_ExcludedProperties>(2, OLESTR("ExcludedProperties")),
        Get<&IItem::get_Folder>(3, OLESTR("Folder")),
        Get<&IItem::get_EntryID>(4, OLESTR("EntryID")),
        Put<&IItem::put_EntryID>(4, OLESTR("EntryID")),
        Get<&IItem::get_Raw>(5, OLESTR("Raw")),
        Put<&IItem::put_Raw>(5, OLESTR("Raw")),
        Method<&IItem::Send>(6, OLESTR("Send"), In(OLESTR("Recipients"))),
        Get<&IItem::get_CustomInfo>(7, OLESTR("CustomInfo")),
        Put<&IItem::put_CustomInfo>(7, OLESTR("CustomInfo")),
        Get<&IItem::get_StoreID>(8, OLESTR("StoreID")),
        Method<&IItem::GetProperty>(9, OLESTR("GetProperty"), In(OLESTR("PropTag")), Result(OLESTR("Value"))),
        Method<&IItem::Submit>(10, OLESTR("Submit")),
        Get<&IItem::get_Action>(11, OLESTR("Action")),
        Put<&IItem::put_Action>(11, OLESTR("Action")),
        Method<&IItem::DeleteProperty>(12, OLESTR("DeleteProperty"), In(OLESTR("PropertyTag"))),
        Method<&IItem::SaveToFile>(13, OLESTR("SaveToFile"), In(OLESTR("FileName"))),
        Get<&IItem::get_Stream>(14, OLESTR("Stream")),
        Put<&IItem::put_Stream>(14, OLESTR("Stream")),
        Method<&IItem::Display>(15, OLESTR("Display"), In(OLESTR("Modal")), In(OLESTR("Parent"))),
        Get<&IItem::get_UnRead>(16, OLESTR("UnRead")),
        Put<&IItem::put_UnRead>(16, OLESTR("UnRead")),
    };
};

template <>
struct OperationsOf<IStorageFiles> {
    static constexpr Operation kTable[] = {
        Get<&IStorageFiles::get__NewEnum>(kDispidNewEnum, OLESTR("_NewEnum")),
        Get<&IStorageFiles::get_Item>(kDispidItem, OLESTR("Item"), In(OLESTR("Index")),
                                      Result(OLESTR("pvar"))),
        Get<&IStorageFiles::get_Count>(kDispidCount, OLESTR("Count")),
        Method<&IStorageFiles::Add>(2, OLESTR("Add"), In(OLESTR("Recipients")), Result(OLESTR("pVal"))),
        Method<&IStorageFiles::Remove>(3, OLESTR("Remove"), In(OLESTR("Index"))),
    };
};

template <>
struct OperationsOf<IStorageFile> {
    static constexpr Operation kTable[] = {
        Get<&IStorageFile::get_Recipients>(1, OLESTR("Recipients")),
        Put<&IStorageFile::put_Recipients>(1, OLESTR("Recipients")),
        Get<&IStorageFile::get_Path>(2, OLESTR("Path")),
        Put<&IStorageFile::put_Path>(2, OLESTR("Path")),
        Get<&IStorageFile::get_isLocked>(3, OLESTR("isLocked")),
        Put<&IStorageFile::put_isLocked>(3, OLESTR("isLocked")),
        Method<&IStorageFile::OpenFolder>(4, OLESTR("OpenFolder"), In(OLESTR("ID")), Result(OLESTR("pVal"))),
        Method<&IStorageFile::OpenItem>(5, OLESTR("OpenItem"), In(OLESTR("ID")), Result(OLESTR("pVal"))),
        Method<&IStorageFile::Delete>(6, OLESTR("Delete")),
        Method<&IStorageFile::Unlock>(7, OLESTR("Unlock")),
        Method<&IStorageFile::Lock>(8, OLESTR("Lock")),
    };
};

template <>
struct OperationsOf<IOptions> {
    static constexpr Operation kTable[] = {
        Get<&IOptions::get__NewEnum>(kDispidNewEnum, OLESTR("_NewEnum")),
        Get<&IOptions::get_Item>(kDispidItem, OLESTR("Item"), In(OLESTR("Index")), Result(OLESTR("pvar"))),
        Get<&IOptions::get_Count>(kDispidCount, OLESTR("Count")),
    };
};

template <>
struct OperationsOf<IOption> {
    static constexpr Operation kTable[] = {
        Get<&IOption::get_Name>(1, OLESTR("Name")),
        Get<&IOption::get_Value>(2, OLESTR("Value")),
        Put<&IOption::put_Value>(2, OLESTR("Value")),
    };
};

template <>
struct OperationsOf<IMsgStores> {
    static constexpr Operation kTable[] = {
        Method<&IMsgStores::Add>(1, OLESTR("Add"), In(OLESTR("pMsgStore"))),
    };
};

template <>
struct OperationsOf<IItemsCol> {
    static constexpr Operation kTable[] = {
        Get<&IItemsCol::get_RawTable>(90, OLESTR("RawTable")),
    };
};

// Interfaces without operations of their own.
template <>
struct OperationsOf<IMyAdviseSink> {
    static constexpr std::array<Operation, 0> kTable{};
};

template <>
struct OperationsOf<IMDBImport> {
    static constexpr std::array<Operation, 0> kTable{};
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_OPERATIONS_H_
