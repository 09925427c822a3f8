// persist/hash_file.h: a map of texts, and the file that mirrors it record by record.
//
// A changed record whose size stays is overwritten in place; any other is appended, as a later record of a
// key replaces an earlier one. A dead record is turned into an outdated record of the key that follows it,
// which replaces it at once: so a reader needs to know nothing of dead records, and a removal writes one key.
// Where the dead outgrow the living the file is written anew.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_FILE_H_
#define QUORVANE_ENGINE_PERSIST_HASH_FILE_H_

#include <cstdint>
#include <limits>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "engine/persist/hash_reader.h"
#include "engine/persist/hash_redo.h"
#include "platform/file/file.h"

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

    // Brings the file up to the map. After a failure the next save writes the whole map. Without an open
    // file S_OK for an empty map, ERROR_INVALID_HANDLE otherwise.
    [[nodiscard]] HRESULT Save() noexcept;

    // The value of a key, null when there is none. Good until the next change.
    const std::string* Find(const std::string& key) const;
    // Throws std::bad_alloc; nothing has changed then.
    void Set(const std::string& key, const std::string& value);
    void Remove(const std::string& key);

    size_t Count() const noexcept { return records_.size(); }
    template <class Visitor>
    void ForEachKey(Visitor visit) const
    {
        for (const auto& [key, record] : records_)
            visit(key);
    }

private:
    struct Record;
    using Node = std::pair<const std::string, Record>;
    using Records = std::unordered_map<std::string, Record>;
    static constexpr std::uint64_t kNowhere = std::numeric_limits<std::uint64_t>::max();

    // A record, and its place in the file. In front of it `gap` bytes may be dead: an outdated record of it.
    struct Record {
        std::string value;
        std::uint64_t offset = kNowhere;
        std::uint64_t gap = 0;
        std::uint64_t size = 0;
        Node* previous = nullptr;  // in the file
        Node* next = nullptr;
    };

    // What is where in the file.
    struct Places {
        Node* first = nullptr;
        Node* last = nullptr;
        std::uint64_t end = 0;   // behind the last whole record
        std::uint64_t live = 0;  // bytes of the records that count

        void Append(Node& node, std::uint64_t size) noexcept;
        void Take(Node& node) noexcept;
    };

    static HRESULT ReadRecords(HashReader& reader, Records& records, Places& places, bool& scattered,
                               HRESULT& damage);
    static void Encode(const Node& node, std::string& bytes);

    HRESULT SaveChanges();
    HRESULT SaveRemoval(Node& node);
    HRESULT SaveRecord(Node& node);
    HRESULT AppendRecord(Node& node, const std::string& bytes);
    HRESULT Bury(std::uint64_t start, Node* next);
    HRESULT CutTail() noexcept;
    void Compact();

    HRESULT SaveAll();
    HRESULT ReplaceFile(bool& mayWriteInPlace);
    HRESULT WriteInPlace();
    HRESULT WriteRecords(File& file) const;
    void AdoptPlaces() noexcept;

    std::string path_;
    File file_;
    HashRedo redo_;
    Records records_;
    Places places_;
    std::unordered_set<Node*> changed_;
    std::unordered_multimap<std::string, Record> removed_;  // still in the file
    bool tailDamaged_ = false;                              // there are bytes behind places_.end
    bool saveAll_ = false;                                  // the places can't be trusted
    std::uint64_t compactAt_ = 0;                           // dead bytes that the last failed compaction met
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_FILE_H_
