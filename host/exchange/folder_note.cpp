#include "host/exchange/folder_note.h"

#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kNoteMagic("QV3FOLD\1", 8);
constexpr std::string_view kNoteName = "what is told of a folder";
constexpr std::size_t kLongestNoteFolderId = 256;

void CheckNote(const FolderNote& note)
{
    bool isProper = !note.folder.empty() && note.folder.size() <= kLongestNoteFolderId &&
                    !note.name.empty() && note.name.size() <= kLongestFolderPath && !note.entries.empty() &&
                    note.entries.size() <= Membership::kMostEntries;
    for (const std::string& entry : note.entries)
        isProper = isProper && !entry.empty() && entry.size() <= kLongestEntry;
    if (!isProper)
        Refuse(std::string(kNoteName) + " has no proper form");
}

std::string TakeText(WireReader& reader)
{
    return std::string(reader.Take(reader.Get<std::uint16_t>()));
}

}  // namespace

std::string WriteFolderNote(const FolderNote& note)
{
    CheckNote(note);
    WireWriter bytes;
    bytes.Put(kNoteMagic).Put(static_cast<std::uint8_t>(note.hasFolder)).Put(note.asked.bytes);
    bytes.Put(static_cast<std::uint16_t>(note.folder.size())).Put(note.folder);
    bytes.Put(static_cast<std::uint16_t>(note.name.size())).Put(note.name);
    bytes.Put(static_cast<std::uint16_t>(note.entries.size()));
    for (const std::string& entry : note.entries)
        bytes.Put(static_cast<std::uint16_t>(entry.size())).Put(entry);
    return bytes.Bytes();
}

FolderNote ReadFolderNote(std::string_view bytes)
{
    WireReader reader(bytes, kNoteName);
    if (reader.Take(kNoteMagic.size()) != kNoteMagic)
        Refuse(std::string(kNoteName) + " begins as nothing of the kind");
    FolderNote note;
    const auto has = reader.Get<std::uint8_t>();
    if (has > 1)
        Refuse(std::string(kNoteName) + " has no proper form");
    note.hasFolder = has == 1;
    note.asked.bytes = reader.GetBytes<16>();
    note.folder = TakeText(reader);
    note.name = TakeText(reader);
    for (std::size_t left = reader.Get<std::uint16_t>(); left > 0; --left)
        note.entries.push_back(TakeText(reader));
    reader.End();
    CheckNote(note);
    return note;
}

}  // namespace quorvane::host::exchange
