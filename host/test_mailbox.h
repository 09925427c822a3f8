// host/test_mailbox.h: a mailbox with one shared folder, as a run of the program has it, for one test.
#ifndef QUORVANE_HOST_TEST_MAILBOX_H_
#define QUORVANE_HOST_TEST_MAILBOX_H_

#include <string>

#include "host/addin.h"
#include "host/folders.h"
#include "host/properties.h"
#include "host/test_directory.h"

namespace quorvane::host {

// The engine knows the folder and doesn't report what happens in it: a test makes the reports itself.
class SharedTestMailbox {
public:
    SharedTestMailbox()
    {
        records.AddShare(share);
        const ComPtr<IFolder> watched = AddEngineFolder(engine, share);
        Check(watched->put_IgnoreEvents(VARIANT_TRUE), "watch the folder", share.name);
        addin.SetEngine(engine);
    }

    // A message in the folder; its entry identifier.
    std::string AddMessage(const std::string& subject) const
    {
        ComPtr<IMessage> message;
        Check(folder->CreateMessage(nullptr, 0, message.Put()), "make a message", subject);
        Check(SetText(*message, PR_SUBJECT_W, subject), "make a message", subject);
        Check(message->SaveChanges(0), "save a message", subject);
        return HexOf(*message, PR_ENTRYID);
    }

    std::uint64_t ModifiedOf(const std::string& entryId) const
    {
        return TimeOf(*OpenMessage(mail, entryId, false), PR_LAST_MODIFICATION_TIME);
    }

    // The row that the engine writes at the end of an item that it has applied.
    void AddRow(const std::string& id, const std::string& entryId)
    {
        Check(
            engine.Session().ImportItem(BstrOf(id).Get(), BstrOf(entryId).Get(), BstrOf(share.storeId).Get()),
            "add a row of", id);
        state.SetRowTime(id, ModifiedOf(entryId));
    }

    ComPtr<IItem> ItemOf(const std::string& id) const
    {
        const Variant missing = Variant::Missing();
        ComPtr<IItem> item;
        Check(engine.Session().GetItemFromID(Variant::Text(FromUtf8(id)).Raw(), missing.Raw(), missing.Raw(),
                                             item.Put()),
              "find an item", id);
        return item;
    }

    void Execute(const std::string& sql) { sharing.Execute(sql); }
    std::int64_t Ask(const std::string& sql)
    {
        Statement select(sharing, sql.c_str());
        return select.Step() ? select.Number(0) : -1;
    }

    TestDirectory directory;
    const Mailbox created = Mailbox::Create((directory / "bob").string(), "bob");
    const Mailbox mailbox = Mailbox::Open((directory / "bob").string());
    MailSession mail{(directory / "bob").string()};
    ComPtr<IMAPIFolder> folder = EnsureFolder(mail, "Shared");
    const Share share{"{F}", HexOf(*folder, PR_ENTRYID), mail.StoreId(), "Shared"};
    Records records{mailbox.HostDatabasePath().string()};
    ItemState state{mailbox, records};
    Statistics statistics;
    const Addin::Parts parts{mailbox, mail, records, state, statistics, false};
    Addin addin{parts};
    EngineSession engine{addin, (directory / "bob").string()};
    Database sharing = mailbox.OpenSharingDatabase();
    Database hostRecords{mailbox.HostDatabasePath().string(), Database::Mode::kOpen};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_TEST_MAILBOX_H_
