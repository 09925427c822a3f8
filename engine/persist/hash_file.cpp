#include "engine/persist/hash_file.h"

#include <utility>

#include "engine/persist/hash_text.h"
#include "engine/session/trace/trace.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

constexpr char kRedoSuffix[] = ".redo";
constexpr char kNewSuffix[] = ".new";
constexpr size_t kWriteBlock = 64 * 1024;

// So many dead bytes are left alone, however few live.
constexpr std::uint64_t kDeadSlack = 64 * 1024;

// From here on writing the whole map is cheaper than writing one record after the other.
constexpr size_t kManyChanges = 64;
constexpr size_t kWholeMapShare = 8;

std::uint64_t RecordSize(const std::string& key, const std::string& value) noexcept
{
    return 2 * kHashLengthSize + HashStringBytes(key) + HashStringBytes(value);
}

// The head of an outdated record that fills `length` bytes whose last two are zero: its key and the size of
// its value, which is what stood there. Empty when that isn't possible.
std::string FillerHead(const std::string& key, std::uint64_t length)
{
    const std::uint64_t headSize = RecordSize(key, kNullHashText);
    if (length < headSize || length - headSize > kMaxHashString || (length - headSize) % 2 != 0)
        return {};
    std::string head;
    AppendHashString(head, key);
    AppendLittleEndian32(head, static_cast<std::uint32_t>(length - headSize));
    return head;
}

}  // namespace

// The map

const std::string* HashFile::Find(const std::string& key) const
{
    const auto found = records_.find(key);
    return found == records_.end() ? nullptr : &found->second.value;
}

void HashFile::Set(const std::string& key, const std::string& value)
{
    const auto found = records_.find(key);
    if (found != records_.end() && found->second.value == value)
        return;
    std::string copy = value;
    const bool fresh = found == records_.end();
    Node& node = fresh ? *records_.try_emplace(key).first : *found;
    try {
        changed_.insert(&node);
    } catch (...) {
        if (fresh)
            records_.erase(key);
        throw;
    }
    node.second.value = std::move(copy);
}

void HashFile::Remove(const std::string& key)
{
    const auto found = records_.find(key);
    if (found == records_.end())
        return;
    const bool inFile = found->second.offset != kNowhere && !saveAll_;
    if (inFile)
        removed_.reserve(removed_.size() + 1);
    changed_.erase(&*found);
    if (inFile)
        removed_.insert(records_.extract(found));
    else
        records_.erase(found);
}

// Places

void HashFile::Places::Append(Node& node, std::uint64_t size) noexcept
{
    Record& record = node.second;
    record.offset = end;
    record.gap = 0;
    record.size = size;
    record.previous = last;
    record.next = nullptr;
    (last ? last->second.next : first) = &node;
    last = &node;
    end += size;
    live += size;
}

void HashFile::Places::Take(Node& node) noexcept
{
    Record& record = node.second;
    (record.previous ? record.previous->second.next : first) = record.next;
    (record.next ? record.next->second.previous : last) = record.previous;
    live -= record.size;
    record.previous = record.next = nullptr;
}

// Loading

HRESULT HashFile::Open(const std::string& path) noexcept
{
    try {
        path_ = path;
        HR_TRY_QUIET(file_.Open(path, FileAccess::ReadWrite, FileMode::OpenAlways, FileShare::ReadWrite));
        HR_IGNORE(RemoveFile(path + kNewSuffix), "a killed process may have left one; mostly there is none");
        const HRESULT hr = redo_.Recover(path + kRedoSuffix, file_);
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
        std::uint64_t size = 0;
        HR_TRY_QUIET(file_.GetSize(size));
        Records records;
        Places places;
        HashReader reader(file_);
        bool scattered = false;
        damage = S_OK;
        HR_TRY_QUIET(ReadRecords(reader, records, places, scattered, damage));
        changed_.clear();
        removed_.clear();
        records_ = std::move(records);
        places_ = places;
        saveAll_ = scattered || reader.SawOddText();
        tailDamaged_ = places.end < size;
        compactAt_ = 0;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

// `scattered` becomes true when an outdated record stands elsewhere than right in front of its successor.
HRESULT HashFile::ReadRecords(HashReader& reader, Records& records, Places& places, bool& scattered,
                              HRESULT& damage)
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
        const auto [place, fresh] = records.try_emplace(key);
        Node& node = *place;
        std::uint64_t gap = 0;
        if (!fresh) {
            const bool rightInFront = places.last == &node;
            scattered = scattered || !rightInFront;
            gap = rightInFront ? node.second.gap + node.second.size : 0;
            places.Take(node);
        }
        places.end = reader.Offset() - RecordSize(key, value);
        places.Append(node, RecordSize(key, value));
        node.second.gap = gap;
        node.second.value = value;
    }
}

// Saving what changed

HRESULT HashFile::Save() noexcept
{
    if (!file_.IsOpen())
        return records_.empty() ? S_OK : HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        const size_t changes = changed_.size() + removed_.size();
        if (saveAll_ || (changes > kManyChanges && changes > records_.size() / kWholeMapShare))
            return SaveAll();
        const HRESULT hr = SaveChanges();
        if (FAILED(hr))
            saveAll_ = true;
        else
            Compact();
        return hr;
    } catch (...) {
        saveAll_ = true;
        return E_OUTOFMEMORY;
    }
}

// Removals come last: a key that was removed and set again is in the file at every moment.
HRESULT HashFile::SaveChanges()
{
    HR_TRY_QUIET(CutTail());
    for (Node* const node : changed_) {
        HR_TRY_QUIET(SaveRecord(*node));
        if (saveAll_)
            return SaveAll();
    }
    changed_.clear();
    for (Node& node : removed_) {
        HR_TRY_QUIET(SaveRemoval(node));
        if (saveAll_)
            return SaveAll();
    }
    removed_.clear();
    return S_OK;
}

HRESULT HashFile::SaveRemoval(Node& node)
{
    const std::uint64_t start = node.second.offset - node.second.gap;
    Node* const next = node.second.next;
    places_.Take(node);
    return Bury(start, next);
}

HRESULT HashFile::CutTail() noexcept
{
    if (!tailDamaged_)
        return S_OK;
    HR_TRY_QUIET(file_.SetSize(places_.end));
    tailDamaged_ = false;
    return S_OK;
}

void HashFile::Encode(const Node& node, std::string& bytes)
{
    AppendHashString(bytes, node.first);
    AppendHashString(bytes, node.second.value);
}

HRESULT HashFile::SaveRecord(Node& node)
{
    Record& record = node.second;
    std::string bytes;
    Encode(node, bytes);
    if (record.offset == kNowhere)
        return AppendRecord(node, bytes);
    if (record.size == bytes.size()) {
        const std::uint64_t keySize = kHashLengthSize + HashStringBytes(node.first);
        return redo_.Overwrite(file_, record.offset + keySize, bytes.substr(keySize));
    }
    const std::uint64_t start = record.offset - record.gap;
    Node* const next = record.next;
    places_.Take(node);
    HR_TRY_QUIET(AppendRecord(node, bytes));
    return Bury(start, next ? next : &node);
}

HRESULT HashFile::AppendRecord(Node& node, const std::string& bytes)
{
    tailDamaged_ = true;
    HR_TRY_QUIET(file_.WriteAt(places_.end, bytes.data(), bytes.size()));
    tailDamaged_ = false;
    places_.Append(node, bytes.size());
    return S_OK;
}

// Makes the bytes from `start` up to the record `next`, or up to the end of the file, count for nothing.
// Where there is no way to, everything is to be saved.
HRESULT HashFile::Bury(std::uint64_t start, Node* next)
{
    while (next) {
        const std::uint64_t length = next->second.offset - start;
        const std::string head = FillerHead(next->first, length);
        if (!head.empty()) {
            HR_TRY_QUIET(redo_.Overwrite(file_, start, head));
            next->second.gap = length;
            return S_OK;
        }
        if (length > kMaxHashString) {
            saveAll_ = true;
            return S_OK;
        }
        // The key has no room there: its record moves to the end and leaves its place to the dead.
        Node& moved = *next;
        next = moved.second.next;
        std::string bytes;
        Encode(moved, bytes);
        places_.Take(moved);
        HR_TRY_QUIET(AppendRecord(moved, bytes));
        next = next ? next : &moved;
    }
    HR_TRY_QUIET(file_.SetSize(start));
    places_.end = start;
    return S_OK;
}

void HashFile::Compact()
{
    const std::uint64_t dead = places_.end - places_.live;
    if (dead <= places_.live + kDeadSlack || dead <= compactAt_)
        return;
    bool mayWriteInPlace = false;
    if (SUCCEEDED(ReplaceFile(mayWriteInPlace)))
        AdoptPlaces();
    else
        compactAt_ = 2 * dead;
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
    File file;
    HRESULT hr = file.Open(newPath, FileAccess::Write, FileMode::CreateAlways);
    mayWriteInPlace = hr == E_ACCESSDENIED;
    HR_TRY_QUIET(hr);
    hr = WriteRecords(file);
    if (SUCCEEDED(hr))
        hr = file.Sync();
    file.Close();
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
    }
    HR_IGNORE(RemoveFile(newPath), "it is overwritten the next time");
    return hr;
}

HRESULT HashFile::WriteInPlace()
{
    redo_.Discard();
    HR_TRY_QUIET(file_.SetSize(0));
    HR_TRY_QUIET(file_.Seek(0, SeekFrom::Begin));
    return WriteRecords(file_);
}

HRESULT HashFile::WriteRecords(File& file) const
{
    std::string bytes;
    bytes.reserve(2 * kWriteBlock);
    for (const Node& node : records_) {
        Encode(node, bytes);
        if (bytes.size() >= kWriteBlock) {
            HR_TRY_QUIET(file.Write(bytes.data(), bytes.size()));
            bytes.clear();
        }
    }
    return bytes.empty() ? S_OK : file.Write(bytes.data(), bytes.size());
}

// The file now holds the records in the order of the map.
void HashFile::AdoptPlaces() noexcept
{
    places_ = Places();
    for (Node& node : records_)
        places_.Append(node, RecordSize(node.first, node.second.value));
    changed_.clear();
    removed_.clear();
    saveAll_ = false;
    tailDamaged_ = false;
    compactAt_ = 0;
}

}  // namespace quorvane
