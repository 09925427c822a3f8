#include "host/sharing/conflict_copies.h"

#include "host/base/output.h"
#include "host/store/folders.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// The categories of a message, and who made a conflict's copy and when: named properties.
MAPINAMEID CategoriesName(const GUID& set)
{
    static OLECHAR text[] = OLESTR("Keywords");
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&set);
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = text;
    return name;
}

constexpr GUID kPublicStrings = {
    0x00020329, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

ULONG TagOf(IMAPIProp& object, MAPINAMEID name, ULONG type)
{
    LPMAPINAMEID names = &name;
    MapiMemory<SPropTagArray> tags;
    Check(object.GetIDsFromNames(1, &names, MAPI_CREATE, tags.Put()), "name a property of",
          "a conflict's copy");
    return CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
}

std::vector<OleString> CategoriesOf(IMessage& message, ULONG tag)
{
    SizedSPropTagArray(1, one) = {1, {tag}};
    ULONG count = 0;
    MapiMemory<SPropValue> value;
    std::vector<OleString> categories;
    if (SUCCEEDED(
            message.GetProps(reinterpret_cast<LPSPropTagArray>(&one), MAPI_UNICODE, &count, value.Put())) &&
        value->ulPropTag == tag)
        for (ULONG i = 0; i < value->Value.MVszW.cValues; ++i)
            categories.emplace_back(value->Value.MVszW.lppszW[i]);
    return categories;
}

// Two more categories: the one that all such items have, and one that says who made this and when.
void Mark(IMessage& message, const std::string& who, std::uint64_t when)
{
    SPropValue value{};
    value.ulPropTag = TagOf(message, CategoriesName(kPublicStrings), PT_MV_UNICODE);
    std::vector<OleString> categories = CategoriesOf(message, value.ulPropTag);
    categories.emplace_back(kConflictCategory);
    categories.push_back(FromUtf8("Conflict: " + who + ", " + TimeText(when)));
    std::vector<LPWSTR> texts;
    for (OleString& category : categories)
        texts.push_back(category.data());
    value.Value.MVszW.cValues = static_cast<ULONG>(texts.size());
    value.Value.MVszW.lppszW = texts.data();
    Check(message.SetProps(1, &value, nullptr), "mark", "a conflict's copy");
}

// The same for a copy however often it is made: what a kill left is known by it.
Bytes SearchKeyOf(const std::string& copy)
{
    std::string digits;
    for (const char c : copy)
        if (c != '{' && c != '}' && c != '-')
            digits += c;
    return FromHex(digits);
}

void SetSearchKey(IMessage& message, Bytes key)
{
    SPropValue value{};
    value.ulPropTag = PR_SEARCH_KEY;
    value.Value.bin.cb = static_cast<ULONG>(key.size());
    value.Value.bin.lpb = key.data();
    Check(message.SetProps(1, &value, nullptr), "mark", "a conflict's copy");
}

std::string FindBySearchKey(IMAPIFolder& folder, const std::string& key)
{
    std::string entryId;
    ForEachItem(folder, [&](const ItemInfo& item) {
        if (item.searchKey == key)
            entryId = item.entryId;
    });
    return entryId;
}

}  // namespace

void ConflictCopies::Make()
{
    for (const TrashEntry& entry : versions_.Removed().CopiesDue())
        try {
            Make(entry);
        } catch (const HostError& error) {
            if (failed_.insert(entry.number).second)
                report_(std::string(error.what()) + "; it lies in the trash ('quorvane trash')");
        }
}

// The entry identifier of the copy's message, which a kill may have left.
std::string ConflictCopies::MakeMessage(const TrashEntry& entry, const Share& share)
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        Fail("keep a conflict's copy in", share.name, "it is gone");
    const Bytes key = SearchKeyOf(entry.copy);
    if (const std::string left = FindBySearchKey(*folder, Hex(key)); !left.empty())
        return left;
    MsgFile file;
    Check(file.Open(versions_.Removed().FileOf(entry)), "keep a conflict's copy of", entry.subject);
    ComPtr<IMessage> message;
    Check(folder->CreateMessage(nullptr, 0, message.Put()), "keep a conflict's copy of", entry.subject);
    Check(file.Message().CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, message.Get(), 0, nullptr),
          "keep a conflict's copy of", entry.subject);
    const auto beaten = ParseHeads(entry.revision);
    Mark(*message, parts_.mailbox.Name(), beaten && beaten->Shown() ? beaten->Shown()->stamp : entry.since);
    SetSearchKey(*message, key);
    Check(message->SaveChanges(KEEP_OPEN_READWRITE), "keep a conflict's copy of", entry.subject);
    return HexOf(*message, PR_ENTRYID);
}

// While it is made, the engine's reports of the folder wait: the message is to be the item that it is known
// as.
void ConflictCopies::Make(const TrashEntry& entry)
{
    const auto share = parts_.records.FindShare(entry.folderId);
    if (share && !parts_.records.FindItem(entry.copy)) {
        struct EndOfCopy {
            ApplyGuard& applying;
            ~EndOfCopy() { applying.End(); }
        };
        parts_.applying.Begin(entry.copy, entry.folderId);
        const EndOfCopy end{parts_.applying};
        const std::string entryId = MakeMessage(entry, *share);
        Check(engine_.Session().ImportItem(BstrOf(entry.copy).Get(), BstrOf(entryId).Get(),
                                           BstrOf(share->storeId).Get()),
              "note a conflict's copy in", share->name);
        sender_.SendItem(*share, entryId, share->entryId);
    }
    versions_.Removed().NoteCopied(entry.number);
}

}  // namespace quorvane::host
