// host/mirror/mirrored_mailbox_for_test.h: for tests: a mailbox with two folders and a Maildir for each.
#ifndef QUORVANE_HOST_MIRROR_MIRRORED_MAILBOX_FOR_TEST_H_
#define QUORVANE_HOST_MIRROR_MIRRORED_MAILBOX_FOR_TEST_H_

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "host/mime/export_mail.h"
#include "host/mime/import_mime.h"
#include "host/mirror/maildir_name.h"
#include "host/mirror/mirrors.h"
#include "host/store/folders.h"
#include "host/store/item_marks.h"
#include "host/store/properties.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace fs = std::filesystem;

inline std::string MailText(const std::string& id, const std::string& subject,
                            const std::string& body = "hello")
{
    return "From: alice@example.org\nTo: bob@example.org\nDate: Mon, 23 Nov 2026 05:00:00 +0000\nMessage-ID: <" +
           id + "@example.org>\nSubject: " + subject + "\n\n" + body + "\n";
}

inline std::string BytesOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string SubjectOf(const std::string& bytes)
{
    const std::size_t at = bytes.find("Subject: ") + 9;
    std::string subject = bytes.substr(at, bytes.find('\n', at) - at);
    if (subject.ends_with('\r'))
        subject.pop_back();
    return subject;
}

// An item as a test sees it.
struct SeenItem {
    std::string id;
    std::string bytes;
    Marks marks = 0;
};
struct SeenFile {
    fs::path path;
    std::string bytes;
    Marks marks = 0;
};

// A mailbox with folders A and B, tied to Maildirs of these names.
class MirroredMailbox {
public:
    MirroredMailbox()
    {
        for (const char* const name : {"A", "B"}) {
            folders[name] = EnsureFolder(session, name);
            Maildir::Make(PathTo(name));
        }
    }

    void Tie(const std::string& name)
    {
        Mirror mirror;
        mirror.entryId = HexOf(*folders[name], PR_ENTRYID);
        mirror.folder = name;
        mirror.directory = PathTo(name).string();
        records.Add(mirror);
    }
    void TieBoth()
    {
        Tie("A");
        Tie("B");
    }

    fs::path PathTo(const std::string& name) const { return root / ("maildir-" + name); }
    fs::path New(const std::string& name, const std::string& file) const
    {
        return PathTo(name) / "new" / file;
    }
    fs::path Cur(const std::string& name, const std::string& file) const
    {
        return PathTo(name) / "cur" / file;
    }

    // As another run.
    void Restart()
    {
        mirrors.emplace(
            mailbox, session, signals, [this](const std::string& line) { said.push_back(line); },
            Maildir::Patience{std::chrono::milliseconds(0), std::chrono::milliseconds(0)});
    }
    // Looks until nothing is to be done.
    void Settle()
    {
        if (!mirrors)
            Restart();
        for (int i = 0; i < 12; ++i)
            if (mirrors->Look())
                return;
        ADD_FAILURE() << "it doesn't come to rest";
    }

    std::string AddItem(const std::string& folder, const std::string& text, Marks marks = 0)
    {
        const MailBytes bytes(text);
        ComPtr<IMessage> message;
        EXPECT_EQ(folders[folder]->CreateMessage(nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(ImportMime(bytes, ImportOptions{(marks & kMarkRead) != 0, &bytes}, *message), S_OK);
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        const std::string id = HexOf(*message, PR_ENTRYID);
        EXPECT_TRUE(SetMarks(session, id, marks, marks));
        return id;
    }
    void EditItem(const std::string& id, const std::string& subject) const
    {
        const ComPtr<IMessage> message = OpenMessage(session, id, true);
        ASSERT_EQ(SetText(*message, PR_SUBJECT_W, subject), S_OK);
        ASSERT_EQ(SetText(*message, PR_NORMALIZED_SUBJECT_W, subject), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    void DeleteItem(const std::string& folder, const std::string& id)
    {
        WithList(id, [&](ENTRYLIST* list) { return folders[folder]->DeleteMessages(list, 0, nullptr, 0); });
    }
    void MoveItem(const std::string& from, const std::string& to, const std::string& id)
    {
        WithList(id, [&](ENTRYLIST* list) {
            return folders[from]->CopyMessages(list, &IID_IMAPIFolder, folders[to].Get(), 0, nullptr,
                                               MESSAGE_MOVE);
        });
    }

    std::vector<SeenItem> Items(const std::string& folder)
    {
        std::vector<SeenItem> items;
        ForEachItem(*folders[folder], [&](const ItemInfo& info) {
            items.push_back({info.entryId, {}, MarksOf(info.flags, info.status)});
        });
        for (SeenItem& item : items) {
            std::ostringstream out;
            const ComPtr<IMessage> message = OpenMessage(session, item.id, false);
            EXPECT_EQ(
                ExportMail(
                    *message,
                    [&](IMessage** scratch) { return folders[folder]->CreateMessage(nullptr, 0, scratch); },
                    out),
                S_OK);
            item.bytes = out.str();
        }
        return items;
    }
    std::vector<SeenFile> Files(const std::string& name) const
    {
        std::vector<SeenFile> files;
        for (const char* const part : {"new", "cur"})
            for (const auto& entry : fs::directory_iterator(PathTo(name) / part))
                if (fs::is_regular_file(entry.symlink_status()) && entry.path().filename().string()[0] != '.')
                    files.push_back({entry.path(), BytesOf(entry.path()),
                                     MarksOfInfo(MaildirName(entry.path().filename().string()).info)});
        return files;
    }
    std::vector<std::string> FileNames(const std::string& name) const
    {
        std::vector<std::string> names;
        for (const SeenFile& file : Files(name))
            names.push_back(file.path.parent_path().filename().string() + "/" +
                            file.path.filename().string());
        return names;
    }

    test::TestDirectory root;
    const StopSignals signals;
    const Mailbox created = Mailbox::Create((root / "box").string(), "alice");
    const Mailbox mailbox = Mailbox::Open((root / "box").string());
    const MailSession session{(root / "box").string()};
    std::map<std::string, ComPtr<IMAPIFolder>> folders;
    MirrorRecords records{mailbox.HostDatabasePath().string()};
    std::vector<std::string> said;
    std::optional<Mirrors> mirrors;

private:
    template <class Work>
    static void WithList(const std::string& id, Work work)
    {
        Bytes bytes = FromHex(id);
        SBinary binary{static_cast<ULONG>(bytes.size()), bytes.data()};
        ENTRYLIST list{1, &binary};
        EXPECT_EQ(work(&list), S_OK);
    }
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MIRRORED_MAILBOX_FOR_TEST_H_
