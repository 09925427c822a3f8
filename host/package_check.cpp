#include "host/package_check.h"

#include <cstring>

#include "host/errors.h"
#include "host/path_text.h"
#include "quorvane3/object_model.h"

namespace quorvane::host {

namespace {

constexpr OLECHAR kFolders[] = OLESTR("Folders");
constexpr OLECHAR kItems[] = OLESTR("Items");
constexpr char kNeverCompleted[] = "it was never completed";
constexpr DWORD kWriteMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr OLECHAR kProperties[] = OLESTR("__properties_version1.0");
constexpr OLECHAR kRecipientPrefix[] = OLESTR("__recip_version1.0_#");
constexpr OLECHAR kAttachmentPrefix[] = OLESTR("__attach_version1.0_#");
constexpr OLECHAR kEmbeddedMessage[] = OLESTR("__substg1.0_3701000D");
constexpr int kDeepestAttached = 32;

// The stream of a message's, a recipient's or an attachment's properties: a header, then entries of one size.
constexpr ULONG kHeaderOfMessage = 32;
constexpr ULONG kHeaderOfEmbedded = 24;
constexpr ULONG kHeaderOfPart = 8;
constexpr ULONG kEntrySize = 16;
constexpr ULONG kRecipientCountAt = 16;
constexpr ULONG kAttachmentCountAt = 20;
constexpr ULONG kValueAt = 8;
constexpr ULONG kAttachMethodTag = 0x37050003;
constexpr ULONG kEmbeddedMethod = 5;
constexpr ULONG kLargestProperties = 1 << 20;

ULONG NumberAt(const std::vector<BYTE>& bytes, std::size_t offset)
{
    return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
           static_cast<ULONG>(bytes[offset + 3]) << 24;
}

// The properties stream of a storage; empty when it isn't there, or not a header and whole entries.
std::vector<BYTE> ReadProperties(IStorage& storage, ULONG header)
{
    const ComPtr<IStream> stream = OpenSubStream(storage, kProperties);
    STATSTG stat{};
    if (!stream || FAILED(stream->Stat(&stat, STATFLAG_NONAME)))
        return {};
    const auto size = stat.cbSize.QuadPart;
    if (size < header || size > kLargestProperties || (size - header) % kEntrySize != 0)
        return {};
    std::vector<BYTE> bytes(static_cast<std::size_t>(size));
    ULONG count = 0;
    if (FAILED(stream->Read(bytes.data(), static_cast<ULONG>(size), &count)) || count != size)
        return {};
    return bytes;
}

bool CarriesMessage(const std::vector<BYTE>& properties)
{
    for (std::size_t entry = kHeaderOfPart; entry + kEntrySize <= properties.size(); entry += kEntrySize)
        if (NumberAt(properties, entry) == kAttachMethodTag)
            return NumberAt(properties, entry + kValueAt) == kEmbeddedMethod;
    return false;
}

std::string DamageOf(IStorage& message, ULONG header, int depth);

std::string DamageOfAttachment(IStorage& attachment, const std::vector<BYTE>& properties, int depth)
{
    if (!CarriesMessage(properties))
        return {};
    const ComPtr<IStorage> message = OpenSubStorage(attachment, kEmbeddedMessage);
    return message ? DamageOf(*message, kHeaderOfEmbedded, depth + 1) : "an attached message is missing";
}

std::string DamageOf(IStorage& message, ULONG header, int depth)
{
    if (depth > kDeepestAttached)
        return "messages are attached to each other too deeply";
    const std::vector<BYTE> properties = ReadProperties(message, header);
    if (properties.empty())
        return "a message has no properties";
    ULONG recipients = 0;
    ULONG attachments = 0;
    for (const Element& element : ListElements(message, "a message")) {
        const bool isRecipient = element.name.starts_with(kRecipientPrefix);
        if (!element.isStorage || (!isRecipient && !element.name.starts_with(kAttachmentPrefix)))
            continue;
        ++(isRecipient ? recipients : attachments);
        const ComPtr<IStorage> part = OpenSubStorage(message, element.name);
        const std::vector<BYTE> own = part ? ReadProperties(*part, kHeaderOfPart) : std::vector<BYTE>();
        if (own.empty())
            return isRecipient ? "a recipient has no properties" : "an attachment has no properties";
        if (!isRecipient)
            if (std::string damage = DamageOfAttachment(*part, own, depth); !damage.empty())
                return damage;
    }
    if (recipients != NumberAt(properties, kRecipientCountAt))
        return "recipients are missing";
    return attachments != NumberAt(properties, kAttachmentCountAt) ? "attachments are missing" : "";
}

// The record of one item, and what is wrong with it.
std::string CheckItem(IStorage& storage, const std::string& shown, PackageRecord& record)
{
    try {
        record = ReadItemRecord(storage, shown);
    } catch (const HostError&) {
        return kNeverCompleted;
    }
    const ComPtr<IStorage> message = OpenMessageStorage(storage);
    record.hasMessage = static_cast<bool>(message);
    if (!message)
        return record.action == qv_ac_Deleted ? "" : "its message is missing";
    return FindDamage(*message);
}

ComPtr<IStorage> OpenToWrite(IStorage& parent, const OLECHAR* name, const std::string& shown)
{
    ComPtr<IStorage> storage;
    Check(parent.OpenStorage(name, nullptr, kWriteMode, nullptr, 0, storage.Put()), "mend the package",
          shown);
    return storage;
}

}  // namespace

std::string FindDamage(IStorage& message)
{
    try {
        return DamageOf(message, kHeaderOfMessage, 0);
    } catch (const HostError&) {
        return "a message can't be read";
    }
}

CheckedPackage CheckPackage(IStorage& root, const std::string& shown)
{
    CheckedPackage checked;
    ForEachStorage(root, kFolders, shown, [&](const OleString& name, IStorage& storage) {
        try {
            checked.sound.folders.push_back(ReadFolderRecord(storage, shown));
            checked.sound.folders.back().element = name;
        } catch (const HostError&) {
            checked.damaged.push_back({kFolders, name, {}, {}, kNeverCompleted});
        }
    });
    ForEachStorage(root, kItems, shown, [&](const OleString& name, IStorage& storage) {
        PackageRecord record;
        const std::string damage = CheckItem(storage, shown, record);
        record.element = name;
        if (damage.empty())
            checked.sound.items.push_back(std::move(record));
        else
            checked.damaged.push_back({kItems, name, record.id, record.folderId, damage});
    });
    return checked;
}

void TakeOut(const std::filesystem::path& path, const std::vector<DamagedElement>& damaged)
{
    const OleString name = OleTextOf(path);
    const std::string shown = path.string();
    ComPtr<IStorage> root;
    Check(StgOpenStorage(name.c_str(), nullptr, kWriteMode, nullptr, 0, root.Put()), "mend the package", shown);
    const ComPtr<IStorage> version = OpenToWrite(*root, OLESTR("1.0"), shown);
    for (const DamagedElement& element : damaged)
        Check(OpenToWrite(*version, element.part, shown)->DestroyElement(element.element.c_str()),
              "mend the package", shown);
    Check(root->Commit(STGC_DEFAULT), "mend the package", shown);
}

bool IsRuined(const std::filesystem::path& path)
{
    const OleString name = OleTextOf(path);
    ComPtr<IStorage> root;
    const HRESULT hr = StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, root.Put());
    if (FAILED(hr))
        return hr == STG_E_FILEALREADYEXISTS || hr == STG_E_INVALIDHEADER || hr == STG_E_DOCFILECORRUPT ||
               hr == STG_E_OLDFORMAT || hr == STG_E_UNKNOWN;
    return !IsPackage(*root);
}

}  // namespace quorvane::host
