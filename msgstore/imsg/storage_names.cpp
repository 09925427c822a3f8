#include "msgstore/imsg/storage_names.h"

#include <algorithm>
#include <cstring>

#include "msgstore/imsg/element_names.h"
#include "msgstore/props/little_endian.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// The streams of the map: the sets' GUIDs, an entry of 8 bytes a name, and the names that are texts.
constexpr ULONG kSetsTag = 0x00020102;
constexpr ULONG kEntriesTag = 0x00030102;
constexpr ULONG kTextsTag = 0x00040102;

// An entry: at 0 the number of a name, or its text's offset; at 4 the kind in the lowest bit and the set
// above it; at 6 how far the identifier lies above 0x8000.
constexpr std::size_t kNameEntrySize = 8;
constexpr std::size_t kEntryKindAt = 4;
constexpr std::size_t kEntryIndexAt = 6;

// Sets that are known by number; those above are found in the stream of sets.
constexpr ULONG kSetMapi = 1;
constexpr ULONG kSetPublicStrings = 2;
constexpr ULONG kFirstListedSet = 3;

// Names are also found through 31 streams by their hash.
constexpr ULONG kFirstHashId = 0x1000;
constexpr ULONG kHashStreams = 0x1F;

constexpr std::uint64_t kLongestStream = 16 * 1024 * 1024;

GUID LoadGuid(const BYTE* bytes) noexcept
{
    GUID guid{};
    guid.Data1 = LoadLittle<std::uint32_t>(bytes);
    guid.Data2 = LoadLittle<std::uint16_t>(bytes + 4);
    guid.Data3 = LoadLittle<std::uint16_t>(bytes + 6);
    std::memcpy(guid.Data4, bytes + 8, sizeof(guid.Data4));
    return guid;
}

void AppendGuid(Bytes& bytes, const GUID& guid)
{
    AppendLittle(bytes, static_cast<std::uint32_t>(guid.Data1));
    AppendLittle(bytes, static_cast<std::uint16_t>(guid.Data2));
    AppendLittle(bytes, static_cast<std::uint16_t>(guid.Data3));
    bytes.insert(bytes.end(), guid.Data4, guid.Data4 + sizeof(guid.Data4));
}

bool LoadSet(ULONG index, const Bytes& sets, GUID& set) noexcept
{
    if (index == kSetMapi || index == kSetPublicStrings) {
        set = index == kSetMapi ? PS_MAPI : PS_PUBLIC_STRINGS;
        return true;
    }
    const std::size_t at = (static_cast<std::size_t>(index) - kFirstListedSet) * sizeof(GUID);
    if (index < kFirstListedSet || sets.size() < sizeof(GUID) || at > sets.size() - sizeof(GUID))
        return false;
    set = LoadGuid(sets.data() + at);
    return true;
}

bool LoadText(std::size_t at, const Bytes& texts, OleString& text)
{
    if (texts.size() < 4 || at > texts.size() - 4)
        return false;
    const std::size_t size = LoadLittle<std::uint32_t>(texts.data() + at);
    if (size > texts.size() - at - 4)
        return false;
    const auto first = texts.begin() + static_cast<std::ptrdiff_t>(at + 4);
    text = BytesText(Bytes(first, first + static_cast<std::ptrdiff_t>(size)));
    return true;
}

// CRC-32 as this layout wants it: it starts at zero and isn't inverted at the end.
ULONG HashOf(const Bytes& text) noexcept
{
    ULONG crc = 0;
    for (const BYTE byte : text) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return crc;
}

// A stream that isn't there is an empty one.
HRESULT ReadOptional(StorageFolder& folder, ULONG tag, Bytes& bytes)
{
    const HRESULT hr = folder.ReadStream(ValueName(tag), kLongestStream, bytes);
    return hr == STG_E_FILENOTFOUND || hr == MAPI_E_TOO_BIG ? S_OK : hr;
}

// The map's streams, built from its entries.
class Streams {
public:
    void Add(ULONG id, const PropertyName& name)
    {
        const ULONG set = IndexOf(name.set);
        const ULONG kind = name.kind == MNID_STRING ? 1 : 0;
        ULONG number = static_cast<ULONG>(name.number);
        ULONG hash = number;
        if (kind == 1) {
            const Bytes text = TextBytes(name.text);
            hash = HashOf(text);
            number = static_cast<ULONG>(texts_.size());
            AppendLittle(texts_, static_cast<std::uint32_t>(text.size()));
            texts_.insert(texts_.end(), text.begin(), text.end());
            texts_.resize((texts_.size() + 3) / 4 * 4);
        }
        const ULONG setAndKind = (set << 1) | kind;
        AppendEntry(entries_, number, setAndKind, id);
        AppendEntry(hashes_[(hash ^ setAndKind) % kHashStreams], hash, setAndKind, id);
    }

    // The sets and the texts first: an entry must find what it speaks of.
    HRESULT Write(StorageFolder& folder) const
    {
        QV_RETURN_IF_FAILED(WriteOne(folder, kSetsTag, sets_));
        QV_RETURN_IF_FAILED(WriteOne(folder, kTextsTag, texts_));
        QV_RETURN_IF_FAILED(WriteOne(folder, kEntriesTag, entries_));
        for (const auto& [index, bytes] : hashes_)
            QV_RETURN_IF_FAILED(WriteOne(folder, PROP_TAG(PT_BINARY, kFirstHashId + index), bytes));
        return S_OK;
    }

    HRESULT FindHeld(StorageFolder& folder)
    {
        std::vector<StorageFolder::Element> elements;
        QV_RETURN_IF_FAILED(folder.List(elements));
        for (StorageFolder::Element& element : elements)
            held_.push_back(std::move(element.name));
        return S_OK;
    }

private:
    ULONG IndexOf(const GUID& set)
    {
        if (set == PS_MAPI || set == PS_PUBLIC_STRINGS)
            return set == PS_MAPI ? kSetMapi : kSetPublicStrings;
        for (std::size_t at = 0; at < sets_.size(); at += sizeof(GUID)) {
            if (LoadGuid(sets_.data() + at) == set)
                return kFirstListedSet + static_cast<ULONG>(at / sizeof(GUID));
        }
        AppendGuid(sets_, set);
        return kFirstListedSet + static_cast<ULONG>(sets_.size() / sizeof(GUID)) - 1;
    }

    static void AppendEntry(Bytes& bytes, ULONG number, ULONG setAndKind, ULONG id)
    {
        AppendLittle(bytes, static_cast<std::uint32_t>(number));
        AppendLittle(bytes, static_cast<std::uint16_t>(setAndKind));
        AppendLittle(bytes, static_cast<std::uint16_t>(id - kFirstNamedId));
    }

    HRESULT WriteOne(StorageFolder& folder, ULONG tag, const Bytes& bytes) const
    {
        const OleString name = ValueName(tag);
        return folder.WriteStream(name, bytes, std::find(held_.begin(), held_.end(), name) != held_.end());
    }

    Bytes sets_;
    Bytes texts_;
    Bytes entries_;
    std::map<ULONG, Bytes> hashes_;
    std::vector<OleString> held_;
};

}  // namespace

StorageNames::StorageNames(std::shared_ptr<StorageFolder> message) : message_(std::move(message))
{
    // Without a random one, the address tells this map from all others of the process.
    if (FAILED(CoCreateGuid(&signature_)))
        signature_.Data1 = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this));
}

HRESULT StorageNames::Load()
{
    if (loaded_)
        return S_OK;
    QV_RETURN_IF_FAILED(ReadEntries());
    loaded_ = true;
    return S_OK;
}

HRESULT StorageNames::ReadEntries()
{
    std::shared_ptr<StorageFolder> folder;
    const HRESULT hr = message_->OpenFolder(OleString(kNamesName), folder);
    if (hr == STG_E_FILENOTFOUND)
        return S_OK;
    QV_RETURN_IF_FAILED(hr);
    Bytes sets;
    Bytes entries;
    Bytes texts;
    QV_RETURN_IF_FAILED(ReadOptional(*folder, kSetsTag, sets));
    QV_RETURN_IF_FAILED(ReadOptional(*folder, kEntriesTag, entries));
    QV_RETURN_IF_FAILED(ReadOptional(*folder, kTextsTag, texts));
    for (std::size_t at = 0; entries.size() - at >= kNameEntrySize; at += kNameEntrySize)
        ReadEntry(entries.data() + at, sets, texts);
    saved_ = true;
    return S_OK;
}

void StorageNames::ReadEntry(const BYTE* entry, const Bytes& sets, const Bytes& texts)
{
    const ULONG number = LoadLittle<std::uint32_t>(entry);
    const ULONG setAndKind = LoadLittle<std::uint16_t>(entry + kEntryKindAt);
    const ULONG id = kFirstNamedId + LoadLittle<std::uint16_t>(entry + kEntryIndexAt);
    PropertyName name;
    name.kind = (setAndKind & 1) != 0 ? MNID_STRING : MNID_ID;
    if (id > kLastNamedId || !LoadSet(setAndKind >> 1, sets, name.set))
        return;
    if (name.kind == MNID_ID)
        name.number = static_cast<LONG>(number);
    else if (!LoadText(number, texts, name.text))
        return;
    names_.emplace(id, std::move(name));
}

HRESULT StorageNames::NameOf(ULONG id, PropertyName& name) noexcept
{
    return Guarded([&]() -> HRESULT {
        const std::lock_guard lock(message_->Lock());
        QV_RETURN_IF_FAILED(Load());
        const auto found = names_.find(id);
        if (found == names_.end())
            return MAPI_E_NOT_FOUND;
        name = found->second;
        return S_OK;
    });
}

ULONG StorageNames::NextId() const noexcept
{
    const ULONG above = names_.empty() ? kFirstNamedId : names_.rbegin()->first + 1;
    if (above <= kLastNamedId)
        return above;
    for (ULONG id = kFirstNamedId; id <= kLastNamedId; ++id) {
        if (names_.count(id) == 0)
            return id;
    }
    return PROP_ID_INVALID;
}

HRESULT StorageNames::IdOf(const PropertyName& name, bool create, ULONG& id) noexcept
{
    return Guarded([&]() -> HRESULT {
        const std::lock_guard lock(message_->Lock());
        QV_RETURN_IF_FAILED(Load());
        for (const auto& [known, held] : names_) {
            if (held == name) {
                id = known;
                return S_OK;
            }
        }
        if (!create)
            return MAPI_E_NOT_FOUND;
        if (!message_->IsWritable())
            return MAPI_E_NO_ACCESS;
        const ULONG next = NextId();
        if (next == PROP_ID_INVALID)
            return MAPI_E_NOT_ENOUGH_RESOURCES;
        names_.emplace(next, name);
        saved_ = false;
        id = next;
        return S_OK;
    });
}

HRESULT StorageNames::All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept
{
    return Guarded([&]() -> HRESULT {
        const std::lock_guard lock(message_->Lock());
        QV_RETURN_IF_FAILED(Load());
        entries.assign(names_.begin(), names_.end());
        return S_OK;
    });
}

HRESULT StorageNames::Save()
{
    const std::lock_guard lock(message_->Lock());
    QV_RETURN_IF_FAILED(Load());
    if (saved_)
        return S_OK;
    Streams streams;
    for (const auto& [id, name] : names_)
        streams.Add(id, name);
    std::shared_ptr<StorageFolder> folder;
    HRESULT hr = message_->OpenFolder(OleString(kNamesName), folder);
    if (hr == STG_E_FILENOTFOUND)
        hr = message_->CreateFolder(OleString(kNamesName), folder);
    QV_RETURN_IF_FAILED(hr);
    QV_RETURN_IF_FAILED(streams.FindHeld(*folder));
    QV_RETURN_IF_FAILED(streams.Write(*folder));
    saved_ = true;
    return S_OK;
}

}  // namespace quorvane
