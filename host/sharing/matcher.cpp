#include "host/sharing/matcher.h"

#include <filesystem>

#include "host/base/compound_file.h"
#include "host/base/path_text.h"
#include "host/store/folders.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

void Matcher::MatchUnfinished()
{
    for (const std::string& path : parts_.state.UnfinishedPaths()) {
        std::error_code error;
        if (std::filesystem::exists(PathOf(path), error))  // else worked off, and only its row was left
            MatchPackage(path);
    }
}

void Matcher::MatchPackage(const std::string& path)
{
    for (auto& [folderId, wanted] : WantedOf(path))
        MatchFolder(folderId, std::move(wanted));
}

// Before an item is applied, the program notes it without the time of a message, which it learns at the end.
bool Matcher::WasBeingApplied(const std::string& id)
{
    const auto record = parts_.records.FindItem(id);
    return record && !record->deleted && record->modified == 0 && !parts_.state.RowOfId(id);
}

std::map<std::string, Matcher::Wanted> Matcher::WantedOf(const std::string& path)
{
    std::map<std::string, Wanted> folders;
    try {
        const ComPtr<IStorage> root = OpenCompoundFile(PathOf(path));
        ReadPackage(*root, path, [&](const PackageRecord& record, IStorage& storage) {
            MsgFile file;
            if (!WasBeingApplied(record.id) || FAILED(file.OpenOn(storage)))
                return;
            const std::string searchKey = HexOf(file.Message(), PR_SEARCH_KEY);
            if (!searchKey.empty())
                folders[record.folderId].emplace(searchKey, record.id);
        });
    } catch (const HostError&) {
        // What stands before the damage may be matched all the same.
    }
    return folders;
}

// Nothing is written while the folder is read: the matches are noted first.
void Matcher::MatchFolder(const std::string& folderId, Wanted wanted)
{
    const auto share = parts_.records.FindShare(folderId);
    const ComPtr<IMAPIFolder> folder = share ? OpenFolder(parts_.mail, share->entryId) : nullptr;
    if (!folder)
        return;
    std::vector<std::pair<std::string, std::string>> matches;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        const auto found = wanted.find(item.searchKey);
        if (found == wanted.end() || parts_.state.RowOfEntry(item.entryId))
            return;
        matches.emplace_back(found->second, item.entryId);
        wanted.erase(found);
    });
    for (const auto& [id, entryId] : matches)
        Check(engine_.Session().ImportItem(BstrOf(id).Get(), BstrOf(entryId).Get(),
                                           BstrOf(share->storeId).Get()),
              "note an item of", share->name);
}

}  // namespace quorvane::host
