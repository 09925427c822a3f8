#include "engine/persist/hash_file.h"

#include <algorithm>
#include <array>
#include <utility>

#include "engine/persist/hash_text.h"
#include "engine/session/trace/trace.h"
#include "platform/file/path.h"
#include "platform/file/permissions.h"

namespace quorvane {
namespace {

constexpr char kRedoSuffix[] = ".redo";
constexpr char kNewSuffix[] = ".new";
constexpr size_t kWriteBlock = 64 * 1024;

// So many outdated bytes are left alone, however few count.
constexpr std::uint64_t kOutdatedSlack = 256 * 1024;

// From here on writing the whole map is cheaper than writing one record after the other.
constexpr size_t kManyChanges = 64;
constexpr size_t kWholeMapShare = 8;

// The same for a key that stands in the file many times: so many places, and so many bytes that count for
// each.
constexpr size_t kManyPlaces = 16;
constexpr std::uint64_t kBytesPerPlace = 4096;

// How many records are picked in the hope that one stands behind another.
constexpr unsigned kPicks = 8;

// No file reserves more memory than a fraction of its size, whatever it says.
constexpr std::uint64_t kSmallestUsualRecord = 64;

std::uint64_t RecordSize(std::string_view key, std::string_view value) noexcept
{
    return 2 * kHashLengthSize + HashStringBytes(key) + HashStringBytes(value);
}

std::string CharactersOf(std::string_view key)
{
    std::string bytes;
    AppendHashCharacters(bytes, key);
    return bytes;
}

}  // namespace

// The map

const HashValue* HashFile::Find(std::string_view key) const
{
    const auto found = map_.records.find(key);
    return found == map_.records.end() ? nullptr : &found->second.value;
}

void HashFile::Set(const std::string& key, const std::string& value)
{
    HashValue copy(value);
    const auto found = map_.records.find(key);
    if (found == map_.records.end()) {
        Enter(key).second.value = std::move(copy);
    } else if (found->second.value.View() != value) {
        if (!saveAll_)
            changed_.insert(&*found);
        found->second.value = std::move(copy);
    }
    NoteMany();
}

// A new record. What the file still holds of its key stands for nothing as soon as it is saved.
HashNode& HashFile::Enter(const std::string& key)
{
    const auto entered = map_.records.try_emplace(HashKey(key)).first;
    HashNode& node = *entered;
    try {
        if (!saveAll_)
            changed_.insert(&node);
        map_.bySize.Add(node);
    } catch (...) {
        changed_.erase(&node);
        map_.records.erase(entered);
        throw;
    }
    if (const auto removed = removed_.find(key); removed != removed_.end()) {
        node.second.outdated = std::move(removed->second.places);
        removed_.erase(removed);
    }
    return node;
}

void HashFile::Remove(const std::string& key)
{
    const auto found = map_.records.find(key);
    if (found == map_.records.end())
        return;
    HashRecord& record = found->second;
    const bool counts = record.offset != kNotInFile;
    if (!saveAll_ && (counts || record.outdated)) {
        auto places = std::make_unique<HashOffsets>(record.outdated ? *record.outdated : HashOffsets());
        if (counts)
            places->push_back(record.offset);
        removed_.emplace(key, Removed{std::move(places), record.size});
    }
    map_.used -= record.size;
    changed_.erase(&*found);
    map_.bySize.Remove(*found);
    map_.records.erase(found);
    NoteMany();
}

void HashFile::NoteMany() noexcept
{
    const size_t changes = changed_.size() + removed_.size();
    if (changes <= kManyChanges || changes <= map_.records.size() / kWholeMapShare)
        return;
    saveAll_ = true;
    ForgetChanges();
}

void HashFile::ForgetChanges() noexcept
{
    changed_.clear();
    removed_.clear();
}

void HashFile::Contents::Place(HashNode& node, std::uint64_t offset, std::uint32_t size)
{
    HashRecord& record = node.second;
    if (record.offset != kNotInFile)
        record.AddOutdated(record.offset);
    used -= record.size;
    record.offset = offset;
    record.size = size;
    used += size;
}

// Loading

HRESULT HashFile::Open(const std::string& path) noexcept
{
    try {
        loaded_ = false;
        path_ = path;
        redo_.SetPath(path + kRedoSuffix);
        HR_TRY_QUIET(file_.Open(path, FileAccess::ReadWrite, FileMode::OpenAlways, FileShare::ReadWrite));
        // What stands beside a file that somebody else writes is theirs.
        if (file_.IsWrittenByOthers())
            return S_OK;
        HR_IGNORE(RemoveFile(path + kNewSuffix), "a killed process may have left one; mostly there is none");
        const HRESULT hr = redo_.Recover(file_);
        if (FAILED(hr))
            file_.Close();
        return hr;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashFile::Load(HRESULT& damage) noexcept
{
    try {
        FileStamp stamp;
        HR_TRY_QUIET(file_.GetStamp(stamp));
        Contents contents;
        HashReader reader(file_);
        damage = S_OK;
        HR_TRY_QUIET(ReadRecords(reader, stamp.size, contents, damage));
        ForgetChanges();
        map_ = std::move(contents);
        stamp_ = stamp;
        saveAll_ = reader.SawOddText();
        tailDamaged_ = map_.end < stamp.size;
        compactAt_ = 0;
        loaded_ = true;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashFile::ReadRecords(HashReader& reader, std::uint64_t fileSize, Contents& contents, HRESULT& damage)
{
    std::string key;
    std::string value;
    for (;;) {
        const HashReader::Kind keyKind = reader.Read(key);
        if (keyKind == HashReader::Kind::Failed)
            return reader.Code();
        if (keyKind != HashReader::Kind::Text)
            return S_OK;
        const HashReader::Kind valueKind = reader.Read(value);
        if (valueKind == HashReader::Kind::Failed)
            return reader.Code();
        if (valueKind == HashReader::Kind::Damaged) {
            damage = reader.Code();
            return S_OK;
        }
        const std::uint64_t size = reader.Offset() - contents.end;
        if (contents.end == 0)
            contents.records.reserve(static_cast<size_t>(fileSize / std::max(size, kSmallestUsualRecord)));
        const auto [place, fresh] = contents.records.try_emplace(HashKey(key));
        if (fresh)
            contents.bySize.Add(*place);
        contents.Place(*place, contents.end, static_cast<std::uint32_t>(size));
        place->second.value = HashValue(value);
        contents.end = reader.Offset();
    }
}

// Saving

HRESULT HashFile::Save() noexcept
{
    try {
        if (loaded_)
            FollowPath();
        if (!loaded_ || !file_.IsOpen())
            return map_.records.empty() ? S_OK : HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
        // Another writer's places are as good as ours: only the whole map is right, where it stands.
        const bool shared = file_.IsWrittenByOthers();
        const HRESULT hr = shared ? WriteInPlace() : SaveAlone();
        saveAll_ = saveAll_ || shared || FAILED(hr);
        if (FAILED(file_.GetStamp(stamp_)))
            saveAll_ = true;
        return hr;
    } catch (...) {
        saveAll_ = true;
        return E_OUTOFMEMORY;
    }
}

// Turns to the file that the path leads to, if somebody has replaced or removed the one that is open, and
// notes if somebody has written to it.
void HashFile::FollowPath() noexcept
{
    FileStamp stamp;
    const bool isThere = SUCCEEDED(GetPathStamp(path_, stamp));
    if (isThere && stamp == stamp_ && file_.IsOpen())
        return;
    saveAll_ = true;
    ForgetChanges();
    if (isThere && stamp.IsSameFile(stamp_) && file_.IsOpen())
        return;
    File file;
    if (SUCCEEDED(file.Open(path_, FileAccess::ReadWrite, FileMode::OpenAlways, FileShare::ReadWrite)))
        file_ = std::move(file);
}

HRESULT HashFile::SaveAlone()
{
    if (saveAll_)
        return SaveAll();
    HR_TRY_QUIET(SaveChanges());
    if (saveAll_)
        return SaveAll();
    Compact();
    return S_OK;
}

// Saving what changed

// Removals come last: a key that was removed and set again is in the file at every moment.
HRESULT HashFile::SaveChanges()
{
    if (tailDamaged_)
        HR_TRY_QUIET(CutAt(map_.end));
    HR_TRY_QUIET(AppendRecords(changed_));
    changed_.clear();
    for (const auto& [key, removed] : removed_) {
        HR_TRY_QUIET(RemoveRecords(key, removed));
        if (saveAll_)
            break;
    }
    removed_.clear();
    return S_OK;
}

void HashFile::Encode(const HashNode& node, std::string& bytes)
{
    AppendHashString(bytes, node.first.View());
    AppendHashString(bytes, node.second.value.View());
}

template <class Nodes>
HRESULT HashFile::AppendRecords(const Nodes& nodes)
{
    std::string bytes;
    for (HashNode* const node : nodes) {
        const size_t start = bytes.size();
        Encode(*node, bytes);
        map_.Place(*node, map_.end + start, static_cast<std::uint32_t>(bytes.size() - start));
        if (bytes.size() >= kWriteBlock) {
            HR_TRY_QUIET(WriteAtEnd(bytes));
            bytes.clear();
        }
    }
    return bytes.empty() ? S_OK : WriteAtEnd(bytes);
}

HRESULT HashFile::WriteAtEnd(const std::string& bytes) noexcept
{
    tailDamaged_ = true;
    HR_TRY_QUIET(file_.WriteAt(map_.end, bytes.data(), bytes.size()));
    tailDamaged_ = false;
    map_.end += bytes.size();
    return S_OK;
}

// Removes every record of a key, the one that counts last: until then the key has its value. Where there is
// no way to, everything is to be saved.
HRESULT HashFile::RemoveRecords(const std::string& key, const Removed& removed)
{
    if (map_.records.empty())
        return CutAt(0);
    const size_t places = removed.places->size();
    if (places > kManyPlaces && map_.used < places * kBytesPerPlace) {
        saveAll_ = true;
        return S_OK;
    }
    const std::uint64_t last = removed.places->back();
    for (const std::uint64_t offset : *removed.places) {
        const bool endsFile = offset == last && removed.size > 0 && offset + removed.size == map_.end;
        HR_TRY_QUIET(endsFile ? CutAt(offset) : OverwriteKey(key, offset));
        if (saveAll_)
            return S_OK;
    }
    return S_OK;
}

// Makes the record at the offset an outdated one of another key.
HRESULT HashFile::OverwriteKey(const std::string& key, std::uint64_t offset)
{
    HashNode* other = nullptr;
    HR_TRY_QUIET(FindBehind(key, offset, other));
    if (!other) {
        saveAll_ = true;
        return S_OK;
    }
    other->second.AddOutdated(offset);
    return redo_.Overwrite(file_, offset + kHashLengthSize, CharactersOf(key),
                           CharactersOf(other->first.View()));
}

// A record behind the offset whose key is as long: one that stands there, or a copy that is put there. Null
// if no other key is as long.
HRESULT HashFile::FindBehind(const std::string& key, std::uint64_t offset, HashNode*& other)
{
    for (unsigned i = 0; i < kPicks; ++i) {
        other = map_.bySize.PickAny(key);
        if (!other || other->second.offset > offset)
            return S_OK;
    }
    return AppendRecords(std::array<HashNode*, 1>{other});
}

HRESULT HashFile::CutAt(std::uint64_t offset) noexcept
{
    HR_TRY_QUIET(file_.SetSize(offset));
    map_.end = offset;
    tailDamaged_ = false;
    return S_OK;
}

void HashFile::Compact()
{
    const std::uint64_t outdated = map_.end - map_.used;
    if (outdated <= map_.used + kOutdatedSlack || outdated <= compactAt_)
        return;
    bool mayWriteInPlace = false;
    if (SUCCEEDED(ReplaceFile(mayWriteInPlace)))
        AdoptPlaces();
    else
        compactAt_ = 2 * outdated;
}

// Saving everything

HRESULT HashFile::SaveAll()
{
    saveAll_ = true;
    bool mayWriteInPlace = false;
    HRESULT hr = ReplaceFile(mayWriteInPlace);
    if (FAILED(hr) && mayWriteInPlace)
        hr = WriteInPlace();
    if (SUCCEEDED(hr))
        AdoptPlaces();
    return hr;
}

// Writes the map to a file beside it and puts that one in its place. After a failure the file is as it was.
HRESULT HashFile::ReplaceFile(bool& mayWriteInPlace)
{
    const std::string newPath = path_ + kNewSuffix;
    HRESULT hr = WriteAside(newPath, mayWriteInPlace);
    if (SUCCEEDED(hr)) {
        redo_.Discard();
        file_.Close();
        hr = RenameOver(newPath, path_);
        // Another process may hold the file in a way that forbids the renaming.
        mayWriteInPlace = FAILED(hr);
        const HRESULT opened =
            file_.Open(path_, FileAccess::ReadWrite, FileMode::OpenAlways, FileShare::ReadWrite);
        if (SUCCEEDED(hr)) {
            HR_IGNORE(SyncDirectory(std::string(DirectoryOf(path_))), "the rename itself has happened");
            return opened;
        }
        mayWriteInPlace = SUCCEEDED(opened);
    }
    HR_IGNORE(RemoveFile(newPath), "it is overwritten the next time");
    return hr;
}

// A directory that takes no new file leaves the file itself to be written; a full disk doesn't.
HRESULT HashFile::WriteAside(const std::string& newPath, bool& mayWriteInPlace)
{
    File file;
    const HRESULT opened = file.Open(newPath, FileAccess::Write, FileMode::CreateAlways);
    mayWriteInPlace = FAILED(opened) && opened != HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    HR_TRY_QUIET(opened);
    CopyPermissions(path_, newPath);
    HR_TRY_QUIET(WriteRecords(file));
    return file.Sync();
}

HRESULT HashFile::WriteInPlace()
{
    redo_.Discard();
    ForgetChanges();
    HR_TRY_QUIET(file_.SetSize(0));
    HR_TRY_QUIET(file_.Seek(0, SeekFrom::Begin));
    return WriteRecords(file_);
}

HRESULT HashFile::WriteRecords(File& file) const
{
    std::string bytes;
    bytes.reserve(2 * kWriteBlock);
    for (const HashNode& node : map_.records) {
        Encode(node, bytes);
        if (bytes.size() >= kWriteBlock) {
            HR_TRY_QUIET(file.Write(bytes.data(), bytes.size()));
            bytes.clear();
        }
    }
    return bytes.empty() ? S_OK : file.Write(bytes.data(), bytes.size());
}

// The file now holds the records in the order of the map, and nothing else.
void HashFile::AdoptPlaces() noexcept
{
    map_.end = 0;
    for (auto& [key, record] : map_.records) {
        record.outdated.reset();
        record.offset = map_.end;
        record.size = static_cast<std::uint32_t>(RecordSize(key.View(), record.value.View()));
        map_.end += record.size;
    }
    map_.used = map_.end;
    ForgetChanges();
    saveAll_ = false;
    tailDamaged_ = false;
    compactAt_ = 0;
}

}  // namespace quorvane
