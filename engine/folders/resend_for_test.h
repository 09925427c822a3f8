// folders/resend_for_test.h: a shared folder with mails, and what a resend makes of it.
#ifndef QUORVANE_ENGINE_FOLDERS_RESEND_FOR_TEST_H_
#define QUORVANE_ENGINE_FOLDERS_RESEND_FOR_TEST_H_

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "engine/folders/folder.h"
#include "engine/folders/folders.h"
#include "engine/folders/resend_folder.h"
#include "engine/items/message_storage.h"
#include "engine/items/testing/mail_test.h"
#include "engine/monitor/test_doubles.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/item_hash.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/storage_files.h"
#include "platform/cfb/stg.h"
#include "platform/com/apartment.h"
#include "quorvane3/carried_message.h"

namespace quorvane::testing {

// Writes down what it hears: "0-3" for the limits, "1/3" for a count.
class ProgressNotes final : public ProgressHandler {
public:
    HRESULT answer = S_OK;

    HRESULT SetLimits(LONG min, LONG max) override
    {
        notes_ += std::to_string(min) + "-" + std::to_string(max) + " ";
        return answer;
    }
    HRESULT Progress(LONG count, LONG total) override
    {
        notes_ += std::to_string(count) + "/" + std::to_string(total) + " ";
        return answer;
    }
    const std::string& Notes() const { return notes_; }

    ComPtr<IQuorvaneProgress> Callback() { return MakeComObject<ProgressCallback>(*this); }

private:
    std::string notes_;
};

// Leaves the mails with one subject.
class SubjectRestriction final : public RestrictHandler {
public:
    explicit SubjectRestriction(std::string subject) : subject_(std::move(subject)) {}

    HRESULT RestrictTable(IDispatch* table) override
    {
        ++asked;
        ComPtr<IItemsCol> items;
        HR_TRY_QUIET(QueryFor(table, items));
        ComPtr<IUnknown> raw;
        HR_TRY_QUIET(items->get_RawTable(raw.Put()));
        ComPtr<IMAPITable> contents;
        HR_TRY_QUIET(raw.As(contents));
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_A;
        value.Value.lpszA = subject_.data();
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {RELOP_EQ, PR_SUBJECT_A, &value};
        return contents->Restrict(&restriction, 0);
    }

    ComPtr<IQuorvaneRestrict> Callback() { return MakeComObject<RestrictCallback>(*this); }

    int asked = 0;

private:
    std::string subject_;
};

// A folder shared as {F} without listeners, so that nothing but the test and the job touches its hash store.
class ResendFixture : public ::testing::Test {
protected:
    ResendFixture()
    {
        session.mapiSession = mailbox.Session();
        session.storageFiles = ComPtr<IStorageFiles>(MakeComObject<CStorageFiles>(&session).Get());
        session.folders = ComPtr<IFolders>(MakeComObject<CFolders>(&session).Get());
        const ComPtr<COptions> options = MakeComObject<COptions>();
        EXPECT_EQ(options->Add(kNoListeners, Variant::Bool(true).Raw()), S_OK);
        session.options = ComPtr<IOptions>(options.Get());
        EXPECT_EQ(folder->put_ID(Bstr(kFolderId).Get()), S_OK);
        EXPECT_EQ(folder->put_StoreID(mailbox.StoreId().Get()), S_OK);
        EXPECT_EQ(folder->put_EntryID(folderEntryId.Get()), S_OK);
        EXPECT_EQ(session.HashStores().Add(Bstr(kFolderId).Get(), Bstr(Widen(hashes.File(""))).Get()), 1);
    }
    ~ResendFixture() override
    {
        RemovePackages();
        session.storageFiles.Reset();
        session.folders.Reset();
    }

    void RemovePackages()
    {
        std::istringstream paths(session.Ask("SELECT group_concat(Path, '\n') FROM tblStorageFiles"));
        for (std::string path; std::getline(paths, path);)
            std::filesystem::remove(path);
    }

    // A mail without a row; its identifier.
    Bstr Add(const std::string& subject)
    {
        return TestMailbox::IdOf(*mailbox.AddMessage(*inbox, {subject, "Body", {"ann"}, {subject + ".txt"}}));
    }
    void Change(const Bstr& mail, const std::string& subject)
    {
        const ComPtr<IMessage> message = mailbox.Open(mail, MAPI_MODIFY);
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_A;
        value.Value.lpszA = const_cast<LPSTR>(subject.c_str());
        EXPECT_EQ(message->SetProps(1, &value, nullptr), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    }
    // A row of tblItem.
    void Know(const Bstr& mail, const std::string& id, const std::string& version = "3.0")
    {
        session.Execute("INSERT INTO tblItem VALUES ('" + id + "', '" + Narrow(mail.View()) + "', '" +
                        Narrow(mailbox.StoreId().View()) + "', 0, " + version + ")");
    }
    // The mail with a row and with its present hash: nothing about it is new.
    void KnowWhole(const Bstr& mail, const std::string& id, const std::string& version = "3.0")
    {
        Know(mail, id, version);
        EXPECT_EQ(Hashes().SetHash(mail.Get(), mailbox.Open(mail).Get()), S_OK);
    }
    // The mails {A}, {B}, {C}... with rows and hashes.
    std::vector<Bstr> AddKnown(size_t count)
    {
        std::vector<Bstr> mails;
        for (size_t i = 0; i < count; ++i) {
            const std::string letter(1, static_cast<char>('A' + i));
            mails.push_back(Add(letter));
            KnowWhole(mails.back(), "{" + letter + "}");
        }
        return mails;
    }
    void Delete(const Bstr& mail) { mailbox.Delete(*inbox, mail); }

    CHashDB& Hashes() { return *session.HashStores().Find(Bstr(kFolderId).Get()); }
    std::string HashOf(const Bstr& mail)
    {
        Bstr hash;
        LONG flags = 0;
        EXPECT_EQ(Hashes().GetHash(mail.Get(), hash.Put(), &flags), S_OK);
        return Narrow(hash.View());
    }
    std::string PresentHash(const Bstr& mail)
    {
        PropValue time;
        EXPECT_EQ(mapi::HrGetOneProp(mailbox.Open(mail).Get(), PR_LAST_MODIFICATION_TIME, time.Put()), S_OK);
        return Narrow(Bstr(ItemHash(time->Value.ft)).View());
    }
    // What the hash store's file holds, read anew: key and hash.
    std::map<std::string, std::string> SavedHashes(const std::vector<Bstr>& mails)
    {
        CHashDB read{OleStringView(kFolderId)};
        EXPECT_EQ(read.Init(Bstr(Widen(hashes.File(""))).Get()), S_OK);
        std::map<std::string, std::string> saved;
        for (const Bstr& mail : mails) {
            Bstr hash;
            LONG flags = -1;
            EXPECT_EQ(read.GetHash(mail.Get(), hash.Put(), &flags), S_OK);
            if (flags != -1)
                saved[Narrow(mail.View())] = Narrow(hash.View());
        }
        return saved;
    }

    // What the package of some recipients carries: the items' "ID action subject", sorted; the subject is
    // missing where there is no message. "damaged": what a receiver takes for such.
    std::vector<std::string> Sent(const std::string& recipients)
    {
        std::vector<std::string> sent;
        const std::string path =
            session.Ask("SELECT Path FROM tblStorageFiles WHERE Recipients='" + recipients + "'");
        if (path.empty())
            return sent;
        ComPtr<IStorage> root;
        ComPtr<IStorage> version;
        ComPtr<IStorage> items;
        EXPECT_EQ(StgOpenStorage(Widen(path).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
        EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
        EXPECT_EQ(version->OpenStorage(kItemsName, nullptr, kOpenMode, nullptr, 0, items.Put()), S_OK);
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(items->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        STATSTG stat{};
        for (; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName))
            sent.push_back(Describe(*items, stat.pwcsName));
        std::sort(sent.begin(), sent.end());
        return sent;
    }

    static std::string Describe(IStorage& items, const OLECHAR* name)
    {
        ComPtr<IStorage> element;
        EXPECT_EQ(items.OpenStorage(name, nullptr, kOpenMode, nullptr, 0, element.Put()), S_OK);
        const ComPtr<CItem> item = MakeComObject<CItem>(nullptr);
        if (FAILED(item->Load(element.Get())))
            return "damaged";
        std::string text = Narrow(item->m_bstrID.View()) + " " + std::to_string(item->m_lAction);
        ComPtr<IStorage> data;
        const HRESULT hr = element->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put());
        if (hr == STG_E_FILENOTFOUND)
            return text;
        if (FAILED(hr))
            return "damaged";
        ComPtr<IMessage> message;
        if (FAILED(CheckCarriedMessage(*data)) || FAILED(OpenMessageOnStorage(nullptr, *data, message)))
            return "damaged";
        const TestMail mail = TestMailbox::Read(*message);
        EXPECT_EQ(mail.body, "Body");
        EXPECT_EQ(mail.recipients, std::vector<std::string>{"ann"});
        EXPECT_EQ(mail.attachments.size(), 1u);
        return text + " " + mail.subject;
    }

    const FreeThreadScope freeThread;
    TestMailbox mailbox;
    const test::TestDirectory hashes;
    MonitorSession session;
    ComPtr<IMAPIFolder> inbox = mailbox.MakeFolder("Inbox");
    const Bstr folderEntryId = TestMailbox::IdOf(*inbox);
    ComPtr<CFolder> folder = MakeComObject<CFolder>(&session);
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_FOLDERS_RESEND_FOR_TEST_H_
