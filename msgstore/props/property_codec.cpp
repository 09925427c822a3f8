#include "msgstore/props/property_codec.h"

#include <optional>

#include "msgstore/props/little_endian.h"
#include "msgstore/props/narrow_text.h"
#include "msgstore/props/packed_bytes.h"
#include "msgstore/props/packed_record.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// A run is one record a value: the tag (4 bytes), then for a single value or multiple values of a fixed
// size the byte count (4) and the bytes; for multiple strings or binaries the number of values (4), and
// for each its byte count (4) and its bytes. A tag whose type has this bit stands before text in UTF-8.
constexpr ULONG kNarrowText = 0x4000;
// A packed record stands before all others.

// Shorter values aren't packed: they are what tables show.
constexpr std::size_t kLeastPackedValue = 256;

bool HasItems(ULONG type) noexcept
{
    return (type & MV_FLAG) != 0 && FixedSize(type) == 0;
}

void AppendBlock(Bytes& to, const Bytes& block)
{
    AppendLittle(to, static_cast<std::uint32_t>(block.size()));
    to.insert(to.end(), block.begin(), block.end());
}

void AppendItems(Bytes& to, const std::vector<Bytes>& items)
{
    AppendLittle(to, static_cast<std::uint32_t>(items.size()));
    for (const Bytes& item : items)
        AppendBlock(to, item);
}

void AppendTag(Bytes& to, ULONG tag)
{
    AppendLittle(to, static_cast<std::uint32_t>(tag));
}

// Appends the bytes of a text in UTF-8 with their count; false, and nothing appended, where AppendNarrow has
// it.
bool AppendNarrowBlock(Bytes& to, const Bytes& text)
{
    const std::size_t at = to.size();
    AppendLittle(to, std::uint32_t{0});
    const std::size_t begin = to.size();
    if (!AppendNarrow(text, to)) {
        to.resize(at);
        return false;
    }
    StoreLittle(to.data() + at, static_cast<std::uint32_t>(to.size() - begin));
    return true;
}

// Appends a text's record in UTF-8; false, and nothing appended, where a text of it can't be.
bool AppendNarrowRecord(Bytes& to, const PropertyValue& value)
{
    const std::size_t before = to.size();
    AppendTag(to, value.tag | kNarrowText);
    bool narrow = true;
    if (HasItems(value.type())) {
        AppendLittle(to, static_cast<std::uint32_t>(value.items.size()));
        for (const Bytes& item : value.items)
            narrow = narrow && AppendNarrowBlock(to, item);
    } else {
        narrow = AppendNarrowBlock(to, value.data);
    }
    if (!narrow)
        to.resize(before);
    return narrow;
}

void AppendRecord(Bytes& to, const PropertyValue& value, RunForm form)
{
    const bool isWide = value.type() == PT_UNICODE || value.type() == PT_MV_UNICODE;
    if (isWide && form != RunForm::Plain && AppendNarrowRecord(to, value))
        return;
    AppendTag(to, value.tag);
    if (HasItems(value.type()))
        AppendItems(to, value.items);
    else
        AppendBlock(to, value.data);
}

class Reader {
public:
    explicit Reader(std::span<const BYTE> bytes) noexcept : at_(bytes.data()), left_(bytes.size()) {}

    bool AtEnd() const noexcept { return left_ == 0; }
    HRESULT Number(ULONG& number) noexcept
    {
        if (left_ < 4)
            return MAPI_E_CORRUPT_DATA;
        number = LoadLittle<std::uint32_t>(at_);
        Skip(4);
        return S_OK;
    }
    HRESULT Block(Bytes& block)
    {
        ULONG size = 0;
        QV_RETURN_IF_FAILED(Number(size));
        if (size > left_)
            return MAPI_E_CORRUPT_DATA;
        block.assign(at_, at_ + size);
        Skip(size);
        return S_OK;
    }
    HRESULT Items(std::vector<Bytes>& items)
    {
        ULONG count = 0;
        QV_RETURN_IF_FAILED(Number(count));
        if (count > left_ / 4)
            return MAPI_E_CORRUPT_DATA;
        items.resize(count);
        for (Bytes& item : items)
            QV_RETURN_IF_FAILED(Block(item));
        return S_OK;
    }

private:
    void Skip(std::size_t count) noexcept
    {
        at_ += count;
        left_ -= count;
    }

    const BYTE* at_;
    std::size_t left_;
};

bool SizeFits(const PropertyValue& value) noexcept
{
    const std::size_t width = FixedSize(value.type());
    if (width == 0)
        return true;
    return (value.type() & MV_FLAG) != 0 ? value.data.size() % width == 0 : value.data.size() == width;
}

HRESULT WidenValue(PropertyValue& value)
{
    Bytes narrow;
    narrow.swap(value.data);
    if (!Widen(narrow, value.data))
        return MAPI_E_CORRUPT_DATA;
    for (Bytes& item : value.items) {
        narrow.swap(item);
        if (!Widen(narrow, item))
            return MAPI_E_CORRUPT_DATA;
    }
    return S_OK;
}

HRESULT ReadValue(Reader& reader, PropertyValue& value)
{
    QV_RETURN_IF_FAILED(reader.Number(value.tag));
    const bool isNarrow = (value.type() & kNarrowText) != 0;
    if (isNarrow)
        value.tag &= ~kNarrowText;
    if (isNarrow && value.type() != PT_UNICODE && value.type() != PT_MV_UNICODE)
        return MAPI_E_CORRUPT_DATA;
    if (!IsStorableType(value.type()) || value.type() == PT_OBJECT)
        return MAPI_E_CORRUPT_DATA;
    QV_RETURN_IF_FAILED(HasItems(value.type()) ? reader.Items(value.items) : reader.Block(value.data));
    if (isNarrow)
        return WidenValue(value);
    return SizeFits(value) ? S_OK : MAPI_E_CORRUPT_DATA;
}

HRESULT ReadRecords(std::span<const BYTE> bytes, PropertyBag& bag)
{
    for (Reader reader(bytes); !reader.AtEnd();) {
        PropertyValue value;
        QV_RETURN_IF_FAILED(ReadValue(reader, value));
        bag.Put(std::move(value));
    }
    return S_OK;
}

bool GoesOutOfLine(const PropertyValue& value, std::uint64_t inlineLimit) noexcept
{
    if (value.large)
        return true;
    return FixedSize(value.type()) == 0 && !HasItems(value.type()) && value.data.size() > inlineLimit;
}

// The value that the others are packed with, and what it gives for that; null where none does. A message that
// keeps what it came from holds most of its text twice.
const PropertyValue* FindDictionary(const PropertyBag& bag, std::uint64_t inlineLimit, Bytes& dictionary)
{
    const PropertyValue* found = nullptr;
    for (const PropertyValue& value : bag) {
        if (value.type() != PT_BINARY || GoesOutOfLine(value, inlineLimit))
            continue;
        Bytes made = DictionaryOf(value.data);
        if (made.size() <= dictionary.size())
            continue;
        dictionary.swap(made);
        found = &value;
    }
    return found;
}

// The values of a packed record whose dictionary, if it has one, is in the bag.
HRESULT ReadPackedRecord(const PackedRecord& record, PropertyBag& bag)
{
    Bytes dictionary;
    if (record.Dictionary() != 0) {
        const PropertyValue* const value = bag.FindId(PROP_ID(record.Dictionary()));
        if (!value)
            return MAPI_E_CORRUPT_DATA;
        dictionary = DictionaryOf(value->data);
    }
    Bytes unpacked;
    QV_RETURN_IF_FAILED(record.Unpack(dictionary, unpacked));
    Reader reader(unpacked);
    for (std::size_t place = 0; place < record.Count(); ++place) {
        PropertyValue value;
        QV_RETURN_IF_FAILED(ReadValue(reader, value));
        if (value.tag != record.Tag(place))
            return MAPI_E_CORRUPT_DATA;
        bag.Put(std::move(value));
    }
    return reader.AtEnd() ? S_OK : MAPI_E_CORRUPT_DATA;
}

// Takes a packed record off the front, if there is one, and reads what stands behind it.
HRESULT ReadBesidePacked(std::span<const BYTE> bytes, std::optional<PackedRecord>& record, PropertyBag& bag)
{
    if (IsPackedRecord(bytes))
        QV_RETURN_IF_FAILED(PackedRecord::Take(bytes, record.emplace()));
    return ReadRecords(bytes, bag);
}

bool IsWorthPacking(const PropertyValue& value) noexcept
{
    return value.ByteSize() >= kLeastPackedValue && !(value.type() == PT_BINARY && LooksPacked(value.data));
}

void EncodeInOrder(const PropertyBag& bag, RunForm form, std::uint64_t inlineLimit, Bytes& bytes)
{
    for (const PropertyValue& value : bag)
        if (!GoesOutOfLine(value, inlineLimit))
            AppendRecord(bytes, value, form);
}

void EncodePacked(const PropertyBag& bag, std::uint64_t inlineLimit, Bytes& bytes,
                  std::vector<const PropertyValue*>& outOfLine)
{
    Bytes dictionary;
    const PropertyValue* const source = FindDictionary(bag, inlineLimit, dictionary);
    Bytes packed;
    std::vector<ULONG> tags;
    Bytes beside;
    for (const PropertyValue& value : bag) {
        const bool isInline = !GoesOutOfLine(value, inlineLimit);
        const bool isPacked = isInline && &value != source && IsWorthPacking(value);
        if (isPacked)
            tags.push_back(value.tag);
        if (isInline)
            AppendRecord(isPacked ? packed : beside, value, RunForm::Narrow);
        else
            outOfLine.push_back(&value);
    }
    if (AppendPackedRecord(packed, tags, source ? source->tag : 0, dictionary, bytes))
        bytes.insert(bytes.end(), beside.begin(), beside.end());
    else
        EncodeInOrder(bag, RunForm::Narrow, inlineLimit, bytes);
}

}  // namespace

void EncodeProperties(const PropertyBag& bag, RunForm form, std::uint64_t inlineLimit, Bytes& bytes,
                      std::vector<const PropertyValue*>& outOfLine)
{
    if (form == RunForm::Packed)
        return EncodePacked(bag, inlineLimit, bytes, outOfLine);
    EncodeInOrder(bag, form, inlineLimit, bytes);
    for (const PropertyValue& value : bag)
        if (GoesOutOfLine(value, inlineLimit))
            outOfLine.push_back(&value);
}

HRESULT DecodeProperties(const void* bytes, std::size_t size, PropertyBag& bag) noexcept
{
    return Guarded([&] { return ReadRecords({static_cast<const BYTE*>(bytes), size}, bag); });
}

HRESULT DecodePacked(const void* bytes, std::size_t size, PropertyBag& bag) noexcept
{
    return Guarded([&]() -> HRESULT {
        std::optional<PackedRecord> record;
        QV_RETURN_IF_FAILED(ReadBesidePacked({static_cast<const BYTE*>(bytes), size}, record, bag));
        return record ? ReadPackedRecord(*record, bag) : S_OK;
    });
}

HRESULT DecodeBesidePacked(const void* bytes, std::size_t size, PropertyBag& bag,
                           std::vector<ULONG>& packed) noexcept
{
    return Guarded([&]() -> HRESULT {
        std::optional<PackedRecord> record;
        QV_RETURN_IF_FAILED(ReadBesidePacked({static_cast<const BYTE*>(bytes), size}, record, bag));
        for (std::size_t place = 0; record && place < record->Count(); ++place)
            packed.push_back(record->Tag(place));
        return S_OK;
    });
}

}  // namespace quorvane
