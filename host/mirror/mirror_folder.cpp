#include "host/mirror/mirror_folder.h"

#include <algorithm>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/mime/export_mail.h"
#include "host/mime/import_mime.h"
#include "host/store/folders.h"
#include "host/store/item_marks.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// What tells a message from others, and what its reader made of it.
SizedSPropTagArray(2, kOwnOfMessage) = {2, {PR_SEARCH_KEY, PR_MESSAGE_FLAGS}};

// Takes out what a message has and its new content has not.
void DropOthers(IMessage& message, IMessage& content)
{
    MapiMemory<SPropTagArray> has, gets;
    Check(message.GetPropList(MAPI_UNICODE, has.Put()), "change", "an item");
    Check(content.GetPropList(MAPI_UNICODE, gets.Put()), "change", "an item");
    const ULONG* const begin = gets->aulPropTag;
    const ULONG* const end = begin + gets->cValues;
    std::vector<ULONG> list{0};
    for (ULONG i = 0; i < has->cValues; ++i) {
        const ULONG tag = has->aulPropTag[i];
        const bool stays =
            PROP_TYPE(tag) == PT_OBJECT || tag == PR_SEARCH_KEY || tag == PR_MESSAGE_FLAGS ||
            std::any_of(begin, end, [&](ULONG other) { return PROP_ID(other) == PROP_ID(tag); });
        if (!stays)
            list.push_back(tag);
    }
    list[0] = static_cast<ULONG>(list.size() - 1);
    if (list[0] > 0)  // what the store itself keeps stays
        (void)message.DeleteProps(reinterpret_cast<SPropTagArray*>(list.data()), nullptr);
}

}  // namespace

MirrorFolder::MirrorFolder(const MailSession& session, Trash& trash, const Mirror& mirror, std::string user)
    : session_(session),
      trash_(trash),
      mirror_(mirror),
      user_(std::move(user)),
      folder_(OpenFolder(session, mirror.entryId))
{
    if (!folder_)
        Fail("open the folder", mirror.folder, "it is gone");
}

std::vector<MailItem> MirrorFolder::Items() const
{
    std::vector<MailItem> items;
    SizedSPropTagArray(4, columns) = {
        4, {PR_ENTRYID, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_FLAGS, quorvane::kPrMessageStatus}};
    ForEachItemRow(*folder_, reinterpret_cast<LPSPropTagArray>(&columns), [&](const SRow& row) {
        items.push_back({HexOf(row, PR_ENTRYID),
                         MarksOf(LongOf(row, PR_MESSAGE_FLAGS), LongOf(row, quorvane::kPrMessageStatus)),
                         TimeOf(row, PR_LAST_MODIFICATION_TIME)});
    });
    return items;
}

ComPtr<IMessage> MirrorFolder::NewMessage(const MailBytes& bytes, Marks marks) const
{
    ComPtr<IMessage> message;
    Check(folder_->CreateMessage(nullptr, 0, message.Put()), "make an item in", mirror_.folder);
    Check(ImportMime(bytes, ImportOptions{(marks & kMarkRead) != 0, &bytes}, *message), "make an item in",
          mirror_.folder);
    return message;
}

MirrorFolder::Imported MirrorFolder::Import(const MailBytes& bytes, Marks marks,
                                            const std::function<bool(const std::string&)>& isFree)
{
    const ComPtr<IMessage> message = NewMessage(bytes, marks);
    if (isFree) {
        if (!known_)
            known_ = std::make_unique<KnownMail>(session_, *folder_, isFree);
        if (const std::string id = known_->Take(*message); !id.empty())
            if (const ComPtr<IMessage> found = OpenMessage(session_, id, false))
                return {{id, MarksOf(*found), TimeOf(*found, PR_LAST_MODIFICATION_TIME)}, true};
    }
    Check(message->SaveChanges(KEEP_OPEN_READWRITE | MAPI_DEFERRED_ERRORS), "save an item of",
          mirror_.folder);
    Imported imported{{HexOf(*message, PR_ENTRYID), marks, TimeOf(*message, PR_LAST_MODIFICATION_TIME)},
                      false};
    if ((marks & ~kMarkRead) != 0)
        (void)SetMarks(session_, imported.item.id, marks, static_cast<Marks>(kAllMarks & ~kMarkRead));
    return imported;
}

std::uint64_t MirrorFolder::Update(const std::string& id, const MailBytes& bytes) const
{
    const ComPtr<IMessage> content = NewMessage(bytes, 0);
    const ComPtr<IMessage> message = OpenMessage(session_, id, true);
    if (!message)
        Fail("change an item of", mirror_.folder, "it is gone");
    DropOthers(*message, *content);
    Check(content->CopyTo(0, nullptr, reinterpret_cast<SPropTagArray*>(&kOwnOfMessage), 0, nullptr,
                          &IID_IMessage, message.Get(), 0, nullptr),
          "change an item of", mirror_.folder);
    Check(message->SaveChanges(KEEP_OPEN_READWRITE), "change an item of", mirror_.folder);
    return TimeOf(*message, PR_LAST_MODIFICATION_TIME);
}

bool MirrorFolder::Export(const std::string& id, std::ostream& out) const
{
    const ComPtr<IMessage> message = OpenMessage(session_, id, false);
    if (!message)
        return false;
    Check(ExportMail(
              *message, [&](IMessage** scratch) { return folder_->CreateMessage(nullptr, 0, scratch); }, out),
          "write an item of", mirror_.folder);
    return true;
}

void MirrorFolder::Delete(const std::string& id, const std::string& digest) const
{
    const ComPtr<IMessage> message = OpenMessage(session_, id, false);
    if (!message)
        return;
    TrashEntry entry;
    entry.item = id;
    entry.folder = mirror_.folder;
    entry.revision = Hex(Bytes(digest.begin(), digest.end()));
    entry.subject = TextOf(*message, PR_SUBJECT_W);
    entry.member = user_;
    entry.why = TrashEntry::Why::kMirrored;
    entry.since = FileTimeNow();
    trash_.Keep(entry, *message);
    Bytes bytes = FromHex(id);
    SBinary binary{static_cast<ULONG>(bytes.size()), bytes.data()};
    ENTRYLIST list{1, &binary};
    Check(folder_->DeleteMessages(&list, 0, nullptr, 0), "delete an item of", mirror_.folder);
}

void MirrorFolder::MoveTo(const MirrorFolder& target, const std::string& id) const
{
    Bytes bytes = FromHex(id);
    SBinary binary{static_cast<ULONG>(bytes.size()), bytes.data()};
    ENTRYLIST list{1, &binary};
    Check(folder_->CopyMessages(&list, &IID_IMAPIFolder, target.folder_.Get(), 0, nullptr, MESSAGE_MOVE),
          "move an item to", target.mirror_.folder);
}

std::uint64_t MirrorFolder::TimeOfItem(const std::string& id) const
{
    const ComPtr<IMessage> message = OpenMessage(session_, id, false);
    return message ? TimeOf(*message, PR_LAST_MODIFICATION_TIME) : 0;
}

}  // namespace quorvane::host
