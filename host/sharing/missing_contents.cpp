#include "host/sharing/missing_contents.h"

#include <filesystem>

#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/mailbox/item_text.h"
#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// Under which the engine collects what it is to apply itself.
constexpr char kSelf[] = "self";

void DeleteFrom(IMAPIFolder& folder, const std::string& entryId, const std::string& shown)
{
    Bytes id = FromHex(entryId);
    SBinary binary{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &binary};
    Check(folder.DeleteMessages(&list, 0, nullptr, 0), "remove what an item showed from", shown);
}

}  // namespace

// The digest that a message has in the store: there it has properties that it hasn't in a file. Nothing is
// saved.
exchange::ContentDigest MissingContents::DigestInStore(const Share& share, IMessage& message,
                                                       const std::string& shown) const
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        Fail("take from the trash", shown, "the folder is gone");
    ComPtr<IMessage> draft;
    Check(folder->CreateMessage(nullptr, 0, draft.Put()), "take from the trash", shown);
    Check(message.CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, draft.Get(), 0, nullptr),
          "take from the trash", shown);
    return DigestOf(ReadContent(*draft, shown));
}

void MissingContents::Look()
{
    looked_ = parts_.statistics.lastActivity;
    bool isAnyPacked = false;
    for (const ItemRecord& record : parts_.records.MissingItems()) {
        const auto share = parts_.records.FindShare(record.folderId);
        if (!share || !engine_.FindFolder(record.folderId))
            continue;
        try {
            if (IsInCopy(record))
                Drop(*share, record);
            else
                isAnyPacked = PackFromTrash(*share, record) || isAnyPacked;
        } catch (const HostError& error) {
            if (failed_.insert(record.id).second)
                report_(error.what());
        }
    }
    if (isAnyPacked)
        HandOver();
}

// Whether the text is, or was, to be seen in an item of its own. A copy that isn't whole here may come yet.
bool MissingContents::IsInCopy(const ItemRecord& record)
{
    const auto copy = parts_.records.FindItem(exchange::ConflictCopyId(record.id, *record.heads.Shown()));
    return copy && (copy->isWhole || copy->deleted);
}

// The message first: a kill behind that leaves a row without one, which is sent as a deletion.
void MissingContents::Drop(const Share& share, const ItemRecord& record)
{
    const auto row = parts_.state.RowOfId(record.id);
    if (const ComPtr<IMessage> message = row ? OpenMessage(parts_.mail, row->entryId, false) : nullptr) {
        versions_.KeepUnseen(record, *message);
        if (const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId))
            DeleteFrom(*folder, row->entryId, share.name);
    }
    sender_.SendDeletion(share, record.id);
}

// As a package of which this mailbox is the receiver: what comes of it is what comes of any other one.
bool MissingContents::PackFromTrash(const Share& share, ItemRecord record)
{
    const exchange::Revision shown = *record.heads.Shown();
    const auto kept = versions_.Removed().FindContent(record.id, RevisionText(shown));
    if (!kept)
        return false;
    MsgFile file;
    Check(file.Open(versions_.Removed().FileOf(*kept)), "take from the trash", kept->subject);
    if (DigestInStore(share, file.Message(), kept->subject) != shown.content)
        Fail("take from the trash", kept->subject, "it isn't what was put there");
    record.isPending = true;
    parts_.records.PutItem(record);
    record.isWhole = true;
    const Variant empty = EmptyStream();
    ComPtr<IItem> item;
    Check(engine_.FindFolder(share.folderId)
              ->CreateItem(empty.Raw(), Variant::Text(FromUtf8(record.id)).Raw(), item.Put()),
          "take from the trash", kept->subject);
    Check(item->put_Raw(&file.Message()), "take from the trash", kept->subject);
    Check(item->put_Action(qv_ac_Modified), "take from the trash", kept->subject);
    Check(item->put_CustomInfo(BstrOf(FormatItem(record)).Get()), "take from the trash", kept->subject);
    Check(item->Send(BstrOf(kSelf).Get()), "take from the trash", kept->subject);
    report_("what beat a change of '" + kept->subject + "' in '" + share.name +
            "' was deleted: the change is put back from the trash");
    return true;
}

// The engine removes the file when it is done with it. What a kill left at its place is written over.
void MissingContents::HandOver()
{
    const Variant key = Variant::Text(OleString(FromUtf8(kSelf)));
    Variant value;
    Check(engine_.StorageFiles()->get_Item(key.Raw(), value.Put()), "find", "what comes from the trash");
    ComPtr<IStorageFile> package;
    Check(QueryFor(value.Raw().pdispVal, package), "find", "what comes from the trash");
    const std::filesystem::path from = PathOf(ReadText(*package, &IStorageFile::get_Path));
    Check(engine_.StorageFiles()->Remove(key.Raw()), "take", "what comes from the trash");
    const std::filesystem::path path = parts_.mailbox.InboxPath() / "from-trash.qvt";
    std::error_code error;
    std::filesystem::rename(from, path, error);
    if (error)
        Fail("take", "what comes from the trash", error.message());
    Check(engine_.Session().ProcessStorageFile(Bstr(OleTextOf(path)).Get(),
                                               BstrOf(parts_.mailbox.Name()).Get()),
          "hand over", "what comes from the trash");
    parts_.statistics.Touch();
}

}  // namespace quorvane::host
