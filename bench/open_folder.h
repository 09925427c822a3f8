// bench/open_folder.h: a folder of a message store, opened in this process through a profile of its own.
#ifndef QUORVANE_BENCH_OPEN_FOLDER_H_
#define QUORVANE_BENCH_OPEN_FOLDER_H_

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/storeaccess/mapi_binding.h"
#include "platform/com/com_ptr.h"
#include "quorvane3/mapi.h"
#include "quorvane3/message_store.h"

namespace quorvane::bench {

inline void Require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "bench: %s failed\n", what);
    std::abort();
}

// The folder of the mails, opened in this process.
class OpenFolder {
public:
    // store   of the file, which is made if there is none.
    // config  a directory for the profile.
    // name    of a folder below the top of the visible tree.
    OpenFolder(const std::string& store, const std::string& config, const char* name)
    {
        setenv("XDG_CONFIG_HOME", config.c_str(), 1);
        std::filesystem::create_directories(config);
        Require(BindMapiLibrary(), "BindMapiLibrary");
        MAPIINIT_0 init{0, MAPI_MULTITHREAD_NOTIFICATIONS};
        Require(SUCCEEDED(MAPIInitialize(&init)), "MAPIInitialize");
        MakeProfile(store);
        Require(SUCCEEDED(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, session_.Put())),
                "MAPILogonEx");
        ComPtr<IMAPITable> stores;
        Require(SUCCEEDED(session_->GetMsgStoresTable(0, stores.Put())), "GetMsgStoresTable");
        std::vector<BYTE> id = FirstOf(*stores.Get(), PR_ENTRYID);
        Require(SUCCEEDED(session_->OpenMsgStore(0, static_cast<ULONG>(id.size()),
                                                 reinterpret_cast<LPENTRYID>(id.data()), nullptr,
                                                 MDB_NO_MAIL | MDB_WRITE, store_.Put())),
                "OpenMsgStore");
        FindFolder(name);
    }
    OpenFolder(const OpenFolder&) = delete;
    OpenFolder& operator=(const OpenFolder&) = delete;
    ~OpenFolder()
    {
        folder_.Reset();
        store_.Reset();
        session_.Reset();
        MAPIUninitialize();
    }

    IMsgStore& Store() const { return *store_.Get(); }
    IMAPIFolder& Folder() const { return *folder_.Get(); }
    ComPtr<IMAPITable> Contents() const
    {
        ComPtr<IMAPITable> table;
        Require(SUCCEEDED(folder_->GetContentsTable(0, table.Put())), "GetContentsTable");
        return table;
    }

private:
    static LPTSTR Unconst(const char* text) { return const_cast<LPTSTR>(text); }

    // A column of a table's first row, or of the row that `matches`.
    template <class Matches>
    static std::vector<BYTE> FindIn(IMAPITable& table, ULONG tag, Matches matches)
    {
        SizedSPropTagArray(2, columns) = {2, {tag, PR_DISPLAY_NAME_A}};
        SRowSet* rows = nullptr;
        Require(SUCCEEDED(HrQueryAllRows(&table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                                         nullptr, 0, &rows)),
                "HrQueryAllRows");
        std::vector<BYTE> found;
        for (ULONG i = 0; i < rows->cRows && found.empty(); ++i) {
            const SPropValue* const values = rows->aRow[i].lpProps;
            if (matches(values[1]))
                found.assign(values[0].Value.bin.lpb, values[0].Value.bin.lpb + values[0].Value.bin.cb);
        }
        FreeProws(rows);
        Require(!found.empty(), "a search in a table");
        return found;
    }
    static std::vector<BYTE> FirstOf(IMAPITable& table, ULONG tag)
    {
        return FindIn(table, tag, [](const SPropValue&) { return true; });
    }

    static void MakeProfile(const std::string& storePath)
    {
        ComPtr<IProfAdmin> profiles;
        ComPtr<IMsgServiceAdmin> services;
        ComPtr<IMAPITable> table;
        Require(SUCCEEDED(MAPIAdminProfiles(0, profiles.Put())), "MAPIAdminProfiles");
        Require(SUCCEEDED(profiles->CreateProfile(Unconst("bench"), nullptr, 0, 0)), "CreateProfile");
        Require(SUCCEEDED(profiles->AdminServices(Unconst("bench"), nullptr, 0, 0, services.Put())),
                "AdminServices");
        Require(SUCCEEDED(services->CreateMsgService(Unconst(kMessageStoreService), Unconst("bench"), 0, 0)),
                "CreateMsgService");
        Require(SUCCEEDED(services->GetMsgServiceTable(0, table.Put())), "GetMsgServiceTable");
        MAPIUID uid{};
        const std::vector<BYTE> bytes = FirstOf(*table.Get(), PR_SERVICE_UID);
        std::memcpy(&uid, bytes.data(), sizeof uid);
        SPropValue path{};
        path.ulPropTag = kPrMessageStorePath;
        path.Value.lpszA = Unconst(storePath.c_str());
        Require(SUCCEEDED(services->ConfigureMsgService(&uid, 0, 0, 1, &path)), "ConfigureMsgService");
        Require(SUCCEEDED(profiles->SetDefaultProfile(Unconst("bench"), 0)), "SetDefaultProfile");
    }

    void FindFolder(const char* wanted)
    {
        SPropValue* top = nullptr;
        Require(SUCCEEDED(HrGetOneProp(store_.Get(), PR_IPM_SUBTREE_ENTRYID, &top)),
                "PR_IPM_SUBTREE_ENTRYID");
        ComPtr<IMAPIFolder> parent;
        Open(top->Value.bin.cb, top->Value.bin.lpb, parent);
        MAPIFreeBuffer(top);
        ComPtr<IMAPITable> table;
        Require(SUCCEEDED(parent->GetHierarchyTable(0, table.Put())), "GetHierarchyTable");
        std::vector<BYTE> id = FindIn(*table.Get(), PR_ENTRYID, [&](const SPropValue& name) {
            return PROP_TYPE(name.ulPropTag) == PT_STRING8 && std::strcmp(name.Value.lpszA, wanted) == 0;
        });
        Open(static_cast<ULONG>(id.size()), id.data(), folder_);
    }
    void Open(ULONG size, BYTE* id, ComPtr<IMAPIFolder>& folder) const
    {
        ULONG type = 0;
        Require(SUCCEEDED(store_->OpenEntry(size, reinterpret_cast<LPENTRYID>(id), &IID_IMAPIFolder,
                                            MAPI_MODIFY, &type, folder.PutUnknown())),
                "OpenEntry");
    }

    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
    ComPtr<IMAPIFolder> folder_;
};

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_OPEN_FOLDER_H_
