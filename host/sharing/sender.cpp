#include "host/sharing/sender.h"

#include "host/base/output.h"
#include "host/mailbox/item_text.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

std::string NewSharingId()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "make an identifier for", "an item");
    OLECHAR text[40] = {};
    StringFromGUID2(guid, text, 40);
    return ToUtf8(text);
}

}  // namespace

Variant EmptyStream()
{
    Variant stream;
    stream.Raw().parray = SafeArrayCreateVector(VT_UI1, 0, 0);
    if (!stream.Raw().parray)
        throw std::bad_alloc();
    stream.Raw().vt = VT_ARRAY | VT_UI1;
    return stream;
}

ComPtr<IFolder> Sender::EngineFolder(const Share& share) const
{
    ComPtr<IFolder> folder = engine_.FindFolder(share.folderId);
    if (!folder)
        Fail("send from the folder", share.name, "the engine doesn't watch it");
    return folder;
}

// A message that came from another shared folder goes there, and is a new item here.
SharingRow Sender::EnsureRow(const Share& share, const std::string& entryId)
{
    if (const auto row = parts_.state.RowOfEntry(entryId)) {
        const auto known = parts_.records.FindItem(row->id);
        if (!known || known->folderId == share.folderId)
            return *row;
        if (const auto former = parts_.records.FindShare(known->folderId))
            SendDeletion(*former, row->id);
        else
            Check(engine_.Session().DeleteItem(BstrOf(row->id).Get()), "forget an item of", share.name);
    }
    const std::string id = NewSharingId();
    Check(engine_.Session().ImportItem(BstrOf(id).Get(), BstrOf(entryId).Get(), BstrOf(share.storeId).Get()),
          "note an item of", share.name);
    return {id, entryId, share.storeId, 0};
}

// What the program will know of a message in its present state: another version, if it changed.
ItemRecord Sender::RecordOf(const Share& share, const SharingRow& row, IMessage& message) const
{
    const std::uint64_t modified = TimeOf(message, PR_LAST_MODIFICATION_TIME);
    const ItemRecord known = addin_.Versions().Known(row.id, share.folderId);
    const bool unchanged =
        known.heads.Shown() && !known.deleted && parts_.state.IsCurrent(row, share.folderId, modified);
    return unchanged ? known : addin_.Versions().Present(row.id, share.folderId, message);
}

void Sender::TakeForSent(const Share& share, const std::string& entryId)
{
    const ComPtr<IMessage> message = OpenMessage(parts_.mail, entryId, false);
    if (!message)
        return;
    const SharingRow row = EnsureRow(share, entryId);
    const auto lock = addin_.Versions().Hold();
    if (!addin_.Versions().Known(row.id, share.folderId).isWhole)
        return;
    ItemRecord record = RecordOf(share, row, *message);
    record.modified = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
    record.isPending = false;
    parts_.records.PutItem(record);
    parts_.state.SetRowTime(row.id, record.modified);
}

bool Sender::SendItem(const Share& share, const std::string& entryId, const std::string& recipients)
{
    return Send(share, entryId, recipients, true);
}

void Sender::SendChange(const Share& share, const std::string& entryId)
{
    Send(share, entryId, share.entryId, false);
}

// The version is noted before it is sent, and that it was sent after: a kill before that has it sent once
// more.
bool Sender::Send(const Share& share, const std::string& entryId, const std::string& recipients,
                  bool evenIfSame)
{
    const ComPtr<IMessage> message = OpenMessage(parts_.mail, entryId, false);
    if (!message)
        return false;
    const std::uint64_t modified = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
    const SharingRow row = EnsureRow(share, entryId);
    auto lock = addin_.Versions().Hold();
    const bool isNew = !parts_.records.FindItem(row.id);
    if (!addin_.Versions().Known(row.id, share.folderId).isWhole)
        return false;  // what it shows isn't here
    const ItemRecord record = RecordOf(share, row, *message);
    if (record.isPending || evenIfSame) {
        parts_.records.PutItem(record);
        lock.unlock();
        Pack(share, entryId, *message, isNew ? qv_ac_Added : qv_ac_Modified, record, recipients);
        lock.lock();
    }
    ItemRecord sent = addin_.Versions().Known(row.id, share.folderId);
    if (sent.heads == record.heads) {
        sent.modified = modified;
        parts_.records.PutItem(sent);
    }
    parts_.state.SetRowTime(row.id, modified);
    return true;
}

void Sender::Pack(const Share& share, const std::string& entryId, IMessage& message, qv_Action action,
                  const ItemRecord& record, const std::string& recipients)
{
    addin_.MakeRoomFor(message);
    const Variant missing = Variant::Missing();
    ComPtr<IItem> item;
    Check(engine_.Session().GetItemFromID(missing.Raw(), Variant::Text(FromUtf8(entryId)).Raw(),
                                          missing.Raw(), item.Put()),
          "send an item of", share.name);
    Check(item->put_Raw(&message), "send an item of", share.name);
    Check(item->put_Action(action), "send an item of", share.name);
    Check(item->put_CustomInfo(BstrOf(FormatItem(record)).Get()), "send an item of", share.name);
    Check(item->Send(BstrOf(recipients).Get()), "send an item of", share.name);
    ++parts_.statistics.itemsSent;
    parts_.statistics.Touch();
}

void Sender::PackDeletion(const Share& share, const ItemRecord& record, const std::string& recipients)
{
    ComPtr<IItem> item;
    Check(EngineFolder(share)->CreateItem(EmptyStream().Raw(), Variant::Text(FromUtf8(record.id)).Raw(),
                                          item.Put()),
          "send a deletion from", share.name);
    Check(item->put_Action(qv_ac_Deleted), "send a deletion from", share.name);
    Check(item->put_CustomInfo(BstrOf(FormatItem(record)).Get()), "send a deletion from", share.name);
    Check(item->Send(BstrOf(recipients).Get()), "send a deletion from", share.name);
    ++parts_.statistics.deletionsSent;
    parts_.statistics.Touch();
}

void Sender::SendDeletion(const Share& share, const std::string& id)
{
    auto lock = addin_.Versions().Hold();
    if (parts_.records.FindItem(id)) {
        const ItemRecord record = addin_.Deletions().Note(id, share.folderId);
        lock.unlock();
        PackDeletion(share, record, share.entryId);
    }
    Check(engine_.Session().DeleteItem(BstrOf(id).Get()), "forget an item of", share.name);
}

void Sender::SendDeletion(const Share& share, const std::string& id, const std::string& recipients)
{
    const ItemRecord record = addin_.Versions().Known(id, share.folderId);
    if (record.heads.Shown() && (record.deleted || !record.isWhole))
        PackDeletion(share, record, recipients);
}

}  // namespace quorvane::host
