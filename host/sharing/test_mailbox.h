// host/sharing/test_mailbox.h: a mailbox with one shared folder, as a run of the program has it, for one
// test.
#ifndef QUORVANE_HOST_SHARING_TEST_MAILBOX_H_
#define QUORVANE_HOST_SHARING_TEST_MAILBOX_H_

#include <atomic>
#include <functional>
#include <string>

#include "host/base/system_file.h"
#include "host/sharing/addin.h"
#include "host/sharing/transport.h"
#include "host/store/folders.h"
#include "host/store/properties.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

// The engine's callbacks on their way to the program, with a place for a test to hold one up.
struct HeldUpCallbacks final : ExtHandler {
    explicit HeldUpCallbacks(Addin& target) noexcept : addin(target) {}
    HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) override
    {
        if (beforeResend)
            beforeResend();
        const HRESULT hr = addin.OnItemResend(item, jobId, ignore);
        resent += ignore ? 0 : 1;
        return !failResend.empty() && ReadText(*item, &IItem::get_ID) == failResend ? E_FAIL : hr;
    }
    HRESULT OnItemAdded(IItem* item, bool& ignore) override
    {
        return Change([&] { return addin.OnItemAdded(item, ignore); }, *item, ignore);
    }
    HRESULT OnItemChanged(IItem* item, bool& ignore) override
    {
        return Change([&] { return addin.OnItemChanged(item, ignore); }, *item, ignore);
    }
    HRESULT OnItemDeleted(IItem* item, bool& ignore) override
    {
        const HRESULT hr = addin.OnItemDeleted(item, ignore);
        if (afterDeletion)
            afterDeletion(ReadText(*item, &IItem::get_EntryID), hr);
        return hr;
    }
    HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) override
    {
        if (beforeReceived)
            beforeReceived();
        if (failReceived > 0 && failReceived-- > 0)
            return E_FAIL;
        return addin.OnItemReceived(item, tag, ignore);
    }
    HRESULT OnPostprocess(BSTR entryId, BSTR storeId) override
    {
        return addin.OnPostprocess(entryId, storeId);
    }
    HRESULT DatabasePath(Bstr& path) override { return addin.DatabasePath(path); }
    HRESULT ProductCode(Bstr& code) override { return addin.ProductCode(code); }

    template <class Call>
    HRESULT Change(Call call, IItem& item, const bool& ignore)
    {
        const std::string entryId = ReadText(item, &IItem::get_EntryID);
        if (beforeChange)
            beforeChange(entryId);
        const HRESULT hr = call();
        if (afterChange)
            afterChange(entryId, ignore);
        return hr;
    }

    Addin& addin;
    // Set before the engine has anything to call about. A change is named by its message.
    std::function<void()> beforeReceived;
    std::function<void()> beforeResend;
    std::function<void(const std::string&)> beforeChange;
    std::function<void(const std::string&, bool ignored)> afterChange;
    std::function<void(const std::string&, HRESULT)> afterDeletion;
    std::string failResend;            // the ID of an item that can't be sent
    std::atomic<int> resent{0};        // items that a resend was let send
    std::atomic<int> failReceived{0};  // how many of the items that arrive next aren't let in
};

// The engine knows the folder and doesn't report what happens in it: a test makes the reports itself.
class SharedTestMailbox {
public:
    SharedTestMailbox()
    {
        Pin(alice, "alice");
        Pin(carol, "carol");
        transport.folders.Found(share);
        AddEngineFolder(engine, share);
        Watch(false);
        addin.SetEngine(engine);
    }

    // Another member's device, known by its card.
    void Pin(const exchange::DeviceKeys& keys, const std::string& member)
    {
        const std::string card = exchange::WriteCard(keys, member, 1);
        transport.peers.Pin(exchange::ReadCard(card, keys.Id()), card, member, "device");
    }

    // Lets members in whose devices are pinned, and who take part in the folder.
    void LetIn(const std::vector<std::string>& members)
    {
        for (const std::string& member : members) {
            Invite(member);
            records.FinishResend(records.FindResend("{F}", member)->number);
        }
    }
    // The same of one who is yet to be sent all of it.
    void Invite(const std::string& member)
    {
        transport.folders.Invite("{F}", member);
        Statement(hostRecords,
                  "UPDATE folder_device SET has = 1, told = 1, due = 0 WHERE device IN (SELECT id FROM "
                  "device WHERE member = ?)")
            .Bind(1, member)
            .Run();
        transport.folders.Settle();
    }

    // The content of a package that this mailbox has laid into the exchange for `receiver`, in a file.
    std::filesystem::path Delivered(std::uint64_t sequence, const exchange::DeviceKeys& receiver) const
    {
        const auto file = transport.place.Open(transport.keys.Id(), sequence);
        if (!file)
            return {};
        exchange::SealedPackage package(*file, "the delivered one");
        package.Verify(transport.keys.Signing());
        const auto path = directory / ("delivered-" + std::to_string(sequence));
        const SystemFile content(path, SystemFile::Use::kWrite);
        package.Unseal(receiver, [&](std::string_view bytes) { content.Write(bytes.data(), bytes.size()); });
        return path;
    }

    // Whether the engine reports what happens in the folder.
    void Watch(bool on) const
    {
        Check(engine.FindFolder(share.folderId)->put_IgnoreEvents(on ? VARIANT_FALSE : VARIANT_TRUE),
              "watch the folder", share.name);
    }

    // A message in the folder, or in another; its entry identifier.
    std::string AddMessage(const std::string& subject) const { return AddMessage(*folder, subject); }
    static std::string AddMessage(IMAPIFolder& place, const std::string& subject)
    {
        ComPtr<IMessage> message;
        Check(place.CreateMessage(nullptr, 0, message.Put()), "make a message", subject);
        Check(SetText(*message, PR_SUBJECT_W, subject), "make a message", subject);
        Check(message->SaveChanges(0), "save a message", subject);
        return HexOf(*message, PR_ENTRYID);
    }

    void ChangeMessage(const std::string& entryId, const std::string& subject) const
    {
        const ComPtr<IMessage> message = OpenMessage(mail, entryId, true);
        Check(SetText(*message, PR_SUBJECT_W, subject), "change a message", subject);
        Check(message->SaveChanges(0), "save a message", subject);
    }
    void MoveMessage(const std::string& entryId, IMAPIFolder& from, IMAPIFolder& to) const
    {
        Bytes id = FromHex(entryId);
        SBinary binary{static_cast<ULONG>(id.size()), id.data()};
        ENTRYLIST list{1, &binary};
        Check(from.CopyMessages(&list, &IID_IMAPIFolder, &to, 0, nullptr, MESSAGE_MOVE), "move", entryId);
    }
    void DeleteMessage(const std::string& entryId) const
    {
        Bytes id = FromHex(entryId);
        SBinary binary{static_cast<ULONG>(id.size()), id.data()};
        ENTRYLIST list{1, &binary};
        Check(folder->DeleteMessages(&list, 0, nullptr, 0), "delete", entryId);
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

    // The package that the engine fills for these recipients.
    ComPtr<IStorageFile> PackageFor(const std::string& recipients) const
    {
        Variant value;
        Check(engine.StorageFiles()->get_Item(Variant::Text(FromUtf8(recipients)).Raw(), value.Put()),
              "find the package for", recipients);
        ComPtr<IStorageFile> file;
        Check(QueryFor(value.Raw().pdispVal, file), "find the package for", recipients);
        return file;
    }

    void Execute(const std::string& sql) { sharing.Execute(sql); }
    std::int64_t Ask(const std::string& sql)
    {
        Statement select(sharing, sql.c_str());
        return select.Step() ? select.Number(0) : -1;
    }

    test::TestDirectory directory;
    const Mailbox created = Mailbox::Create((directory / "bob").string(), "bob");
    const Mailbox mailbox = Mailbox::Open((directory / "bob").string());
    const bool hasExchange = std::filesystem::create_directory(directory / "exchange");
    Transport transport{mailbox, directory / "exchange"};
    const exchange::DeviceKeys alice, carol;  // of other members
    MailSession mail{(directory / "bob").string()};
    ComPtr<IMAPIFolder> folder = EnsureFolder(mail, "Shared");
    const Share share{"{F}", HexOf(*folder, PR_ENTRYID), mail.StoreId(), "Shared"};
    Records records{mailbox.HostDatabasePath().string()};
    ItemState state{mailbox, records};
    ApplyGuard applying;
    Statistics statistics;
    const Addin::Parts parts{mailbox, mail, records, state, applying, statistics, false};
    Addin addin{parts};
    HeldUpCallbacks callbacks{addin};
    EngineSession engine{callbacks, (directory / "bob").string()};
    Database sharing = mailbox.OpenSharingDatabase();
    Database hostRecords{mailbox.HostDatabasePath().string(), Database::Mode::kOpen};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_TEST_MAILBOX_H_
