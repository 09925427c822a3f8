#include "host/sharing/package_check.h"

#include "host/base/errors.h"
#include "host/base/path_text.h"
#include "quorvane3/carried_message.h"
#include "quorvane3/object_model.h"

namespace quorvane::host {

namespace {

constexpr OLECHAR kFolders[] = OLESTR("Folders");
constexpr OLECHAR kItems[] = OLESTR("Items");
constexpr char kNeverCompleted[] = "it was never completed";
constexpr DWORD kWriteMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

const char* DamageText(CarriedDamage damage)
{
    switch (damage) {
        case CarriedDamage::kNone:
            break;
        case CarriedDamage::kProperties:
            return "a message has no properties";
        case CarriedDamage::kRecipientProperties:
            return "a recipient has no properties";
        case CarriedDamage::kAttachmentProperties:
            return "an attachment has no properties";
        case CarriedDamage::kRecipients:
            return "recipients are missing";
        case CarriedDamage::kAttachments:
            return "attachments are missing";
        case CarriedDamage::kEmbeddedMessage:
            return "an attached message is missing";
    }
    return "a message can't be read";
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
    CarriedDamage damage = CarriedDamage::kNone;
    const HRESULT hr = CheckCarriedMessage(message, &damage);
    if (hr == MAPI_E_TOO_COMPLEX)
        return "messages are attached to each other too deeply";
    return FAILED(hr) ? DamageText(damage) : "";
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
    Check(StgOpenStorage(name.c_str(), nullptr, kWriteMode, nullptr, 0, root.Put()), "mend the package",
          shown);
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
    const HRESULT hr =
        StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, root.Put());
    if (FAILED(hr))
        return hr == STG_E_FILEALREADYEXISTS || hr == STG_E_INVALIDHEADER || hr == STG_E_DOCFILECORRUPT ||
               hr == STG_E_OLDFORMAT || hr == STG_E_UNKNOWN;
    return !IsPackage(*root);
}

}  // namespace quorvane::host
