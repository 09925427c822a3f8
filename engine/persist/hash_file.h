// persist/hash_file.h: a map of texts, and the file that mirrors it record by record.
//
// A new or changed record is appended: a later record of a key replaces an earlier one. To remove a record,
// its key is overwritten with another key of the same size whose own record stands further behind, so that
// the record is an outdated one of that key. So a reader needs to know nothing of removed records; no more
// than the characters of one key is ever overwritten, and no size; and a change costs a few small writes,
// however large the map. Where outdated records outgrow those that count, the file is written anew.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_FILE_H_
#define QUORVANE_ENGINE_PERSIST_HASH_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "engine/persist/hash_reader.h"
#include "engine/persist/hash_record.h"
#include "engine/persist/hash_redo.h"
#include "platform/file/file.h"
#include "platform/file/file_stamp.h"

namespace quorvane {

// Texts are packed (hash_text.h). For one thread at a time.
class HashFile {
public:
    HashFile() noexcept = default;
    HashFile(const HashFile&) = delete;
    HashFile& operator=(const HashFile&) = delete;

    // Opens a file, or makes it, and finishes what a killed process left. The map stays as it is.
    [[nodiscard]] HRESULT Open(const std::string& path) noexcept;

    // Replaces the map by what the file holds in front of the first damage. The map stays after a failure.
    // `damage` is why a value ended the reading; S_OK when a key did, as the end of a whole file does.
    [[nodiscard]] HRESULT Load(HRESULT& damage) noexcept;

    // Brings the file up to the map, whoever wrote it last. After a failure the next save writes the whole
    // map. Where no file was opened and loaded: S_OK for an empty map, ERROR_INVALID_HANDLE otherwise.
    [[nodiscard]] HRESULT Save() noexcept;

    // The value of a key, null when there is none. Good until the next change.
    const HashValue* Find(std::string_view key) const;
    // Throw std::bad_alloc; nothing has changed then.
    void Set(const std::string& key, const std::string& value);
    void Remove(const std::string& key);

    size_t Count() const noexcept { return map_.records.size(); }
    template <class Visitor>
    void ForEachKey(Visitor visit) const
    {
        for (const auto& [key, record] : map_.records)
            visit(key.View());
    }

private:
    // What the file holds.
    struct Contents {
        HashRecords records;
        RecordsBySize bySize;
        std::uint64_t end = 0;   // behind the last whole record
        std::uint64_t used = 0;  // bytes of the records that count

        // A record's place in the file; a former one becomes outdated. Throws std::bad_alloc.
        void Place(HashNode& node, std::uint64_t offset, std::uint32_t size);
    };

    // A key that is in the file and no longer in the map.
    struct Removed {
        std::unique_ptr<HashOffsets> places;  // of its records; the one that counts is the last
        std::uint32_t size = 0;               // of that one; 0 if it isn't known
    };

    static HRESULT ReadRecords(HashReader& reader, std::uint64_t fileSize, Contents& contents,
                               HRESULT& damage);
    static void Encode(const HashNode& node, std::string& bytes);

    HashNode& Enter(const std::string& key);
    void NoteMany() noexcept;

    void FollowPath() noexcept;
    HRESULT SaveAlone();
    HRESULT SaveChanges();
    template <class Nodes>
    HRESULT AppendRecords(const Nodes& nodes);
    HRESULT WriteAtEnd(const std::string& bytes) noexcept;
    HRESULT RemoveRecords(const std::string& key, const Removed& removed);
    HRESULT OverwriteKey(const std::string& key, std::uint64_t offset);
    HRESULT FindBehind(const std::string& key, std::uint64_t offset, HashNode*& other);
    HRESULT CutAt(std::uint64_t offset) noexcept;
    void Compact();

    HRESULT SaveAll();
    HRESULT ReplaceFile(bool& mayWriteInPlace);
    HRESULT WriteAside(const std::string& newPath, bool& mayWriteInPlace);
    HRESULT WriteInPlace();
    HRESULT WriteRecords(File& file) const;
    void AdoptPlaces() noexcept;
    void ForgetChanges() noexcept;

    std::string path_;
    File file_;
    HashRedo redo_;
    FileStamp stamp_;  // of the file as it was left here
    Contents map_;
    std::unordered_set<HashNode*> changed_;
    std::unordered_map<std::string, Removed> removed_;
    bool loaded_ = false;          // the map has seen what the file held
    bool tailDamaged_ = false;     // there are bytes behind the last whole record
    bool saveAll_ = false;         // the places can't be trusted, or there are too many changes
    std::uint64_t compactAt_ = 0;  // outdated bytes that the last failed compaction met
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_FILE_H_
