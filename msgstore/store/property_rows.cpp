#include "msgstore/store/property_rows.h"

#include <algorithm>
#include <cstring>

#include "msgstore/props/packed_record.h"

namespace quorvane {
namespace {

constexpr std::uint64_t kWholeValueLimit = kWholeTextLimit;
constexpr ULONG kChunkSize = 64 * 1024;
constexpr std::size_t kCountSize = 4;

void AppendNumber(Bytes& bytes, std::size_t number)
{
    for (std::size_t i = 0; i < kCountSize; ++i)
        bytes.push_back(static_cast<BYTE>(number >> (8 * i)));
}

// Takes a number off the front of the bytes; false when they are too few.
bool TakeNumber(ByteView& bytes, std::uint64_t& number) noexcept
{
    if (bytes.size() < kCountSize)
        return false;
    number = 0;
    for (std::size_t i = kCountSize; i-- > 0;)
        number = (number << 8) | bytes[i];
    bytes = bytes.subspan(kCountSize);
    return true;
}

HRESULT InsertValueRow(SqliteConnection& connection, std::int64_t partId, ULONG tag, std::uint64_t size,
                       std::int64_t& id)
{
    QV_RETURN_IF_FAILED(connection.Run("INSERT INTO large_value (part_id, tag, size) VALUES (?, ?, ?)",
                                       partId, tag, static_cast<std::int64_t>(size)));
    id = connection.LastInsertId();
    return S_OK;
}

HRESULT InsertChunk(SqliteConnection& connection, std::int64_t valueId, std::int64_t number, ByteView data)
{
    return connection.Run("INSERT INTO chunk (value_id, number, data) VALUES (?, ?, ?)", valueId, number,
                          data);
}

// Copies what one chunk has of the range; false when the chunk isn't as long as the value's size says.
bool CopyFromChunk(ByteView chunk, std::uint64_t at, BYTE* target, ULONG count) noexcept
{
    if (at + count > chunk.size())
        return false;
    std::memcpy(target, chunk.data() + at, count);
    return true;
}

HRESULT DecodeList(ByteView bytes, std::vector<PropertyBag>& recipients)
{
    std::uint64_t count = 0;
    if (!TakeNumber(bytes, count) || count > bytes.size() / kCountSize)
        return MAPI_E_CORRUPT_DATA;
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint64_t size = 0;
        if (!TakeNumber(bytes, size) || size > bytes.size())
            return MAPI_E_CORRUPT_DATA;
        PropertyBag& recipient = recipients.emplace_back();
        QV_RETURN_IF_FAILED(DecodeProperties(bytes.data(), size, recipient));
        bytes = bytes.subspan(size);
    }
    return bytes.empty() ? S_OK : MAPI_E_CORRUPT_DATA;
}

}  // namespace

HRESULT EncodeWhole(const PropertyBag& bag, Bytes& bytes)
{
    PropertyBag whole;
    for (const PropertyValue& value : bag) {
        PropertyValue copy = value;
        if (copy.large) {
            QV_RETURN_IF_FAILED(ReadWhole(*copy.large, kWholeValueLimit, copy.data));
            copy.large.reset();
        }
        whole.Put(std::move(copy));
    }
    std::vector<const PropertyValue*> none;
    bytes.clear();
    EncodeProperties(whole, RunForm::Narrow, UINT64_MAX, bytes, none);
    return S_OK;
}

HRESULT EncodeRecipients(const std::vector<PropertyBag>& recipients, Bytes& bytes)
{
    Bytes plain;
    AppendNumber(plain, recipients.size());
    for (const PropertyBag& recipient : recipients) {
        Bytes one;
        QV_RETURN_IF_FAILED(EncodeWhole(recipient, one));
        AppendNumber(plain, one.size());
        plain.insert(plain.end(), one.begin(), one.end());
    }
    bytes.clear();
    if (!AppendPackedRecord(plain, {}, 0, {}, bytes))
        bytes = std::move(plain);
    return S_OK;
}

HRESULT DecodeRecipients(ByteView bytes, std::vector<PropertyBag>& recipients)
{
    recipients.clear();
    if (bytes.empty())
        return S_OK;
    if (!IsPackedRecord(bytes))
        return DecodeList(bytes, recipients);
    PackedRecord record;
    QV_RETURN_IF_FAILED(PackedRecord::Take(bytes, record));
    Bytes unpacked;
    QV_RETURN_IF_FAILED(record.Unpack({}, unpacked));
    return bytes.empty() ? DecodeList(unpacked, recipients) : MAPI_E_CORRUPT_DATA;
}

namespace {

// `wanted` bytes, which the value has.
HRESULT ReadChunks(SqliteConnection& connection, std::int64_t valueId, std::uint64_t offset, BYTE* target,
                   ULONG wanted)
{
    ULONG done = 0;
    SqliteRows rows =
        connection.Query("SELECT data FROM chunk WHERE value_id=? AND number>=? ORDER BY number", valueId,
                         static_cast<std::int64_t>(offset / kChunkSize));
    while (done < wanted && rows.Next()) {
        const std::uint64_t at = (offset + done) % kChunkSize;
        const auto part = static_cast<ULONG>(std::min<std::uint64_t>(wanted - done, kChunkSize - at));
        if (!CopyFromChunk(rows.Bytes(0), at, target + done, part))
            return MAPI_E_CORRUPT_DATA;
        done += part;
    }
    QV_RETURN_IF_FAILED(rows.Result());
    return done == wanted ? S_OK : MAPI_E_OBJECT_CHANGED;
}

// A value that is read on the connection that it was found on, as long as that stands in its transaction.
class ValueOfRow final : public LargeValue {
public:
    ValueOfRow(SqliteConnection& connection, std::int64_t id, std::uint64_t size) noexcept
        : connection_(connection), id_(id), size_(size)
    {}

    std::uint64_t Size() const noexcept override { return size_; }
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count,
                                 ULONG& read) noexcept override
    {
        read = 0;
        if (offset >= size_)
            return S_OK;
        const auto wanted = static_cast<ULONG>(std::min<std::uint64_t>(count, size_ - offset));
        const HRESULT result =
            Guarded([&] { return ReadChunks(connection_, id_, offset, static_cast<BYTE*>(buffer), wanted); });
        if (SUCCEEDED(result))
            read = wanted;
        return result;
    }

private:
    SqliteConnection& connection_;
    const std::int64_t id_;
    const std::uint64_t size_;
};

template <class MakeValue>
HRESULT PutLargeValues(SqliteConnection& connection, std::int64_t partId, PropertyBag& bag,
                       MakeValue makeValue)
{
    SqliteRows rows = connection.Query("SELECT id, tag, size FROM large_value WHERE part_id=?", partId);
    while (rows.Next()) {
        PropertyValue value;
        value.tag = static_cast<ULONG>(rows.Int64(1));
        value.large = makeValue(rows.Int64(0), static_cast<std::uint64_t>(rows.Int64(2)));
        bag.Put(std::move(value));
    }
    return rows.Result();
}

}  // namespace

HRESULT StoredValue::ReadAt(std::uint64_t offset, void* buffer, ULONG count, ULONG& read) noexcept
{
    read = 0;
    if (offset >= size_)
        return S_OK;
    const auto wanted = static_cast<ULONG>(std::min<std::uint64_t>(count, size_ - offset));
    const HRESULT result = core_->Read([&](SqliteConnection& connection) {
        return ReadChunks(connection, id_, offset, static_cast<BYTE*>(buffer), wanted);
    });
    if (SUCCEEDED(result))
        read = wanted;
    return result;
}

HRESULT ReadLargeValues(SqliteConnection& connection, const std::shared_ptr<StoreCore>& core,
                        std::int64_t partId, PropertyBag& bag)
{
    return PutLargeValues(connection, partId, bag, [&](std::int64_t id, std::uint64_t size) {
        return std::make_shared<StoredValue>(core, id, size);
    });
}

HRESULT ReadLargeValues(SqliteConnection& connection, std::int64_t partId, PropertyBag& bag)
{
    return PutLargeValues(connection, partId, bag, [&](std::int64_t id, std::uint64_t size) {
        return std::make_shared<ValueOfRow>(connection, id, size);
    });
}

HRESULT InsertLargeValue(SqliteConnection& connection, std::int64_t partId, ULONG tag, LargeValue& value)
{
    const std::uint64_t size = value.Size();
    std::int64_t id = 0;
    QV_RETURN_IF_FAILED(InsertValueRow(connection, partId, tag, size, id));
    Bytes piece(static_cast<std::size_t>(std::min<std::uint64_t>(size, kChunkSize)));
    for (std::uint64_t done = 0; done < size;) {
        const auto wanted = static_cast<ULONG>(std::min<std::uint64_t>(size - done, kChunkSize));
        ULONG read = 0;
        QV_RETURN_IF_FAILED(value.ReadAt(done, piece.data(), wanted, read));
        if (read != wanted)
            return MAPI_E_CORRUPT_DATA;
        QV_RETURN_IF_FAILED(InsertChunk(connection, id, static_cast<std::int64_t>(done / kChunkSize),
                                        ByteView(piece.data(), wanted)));
        done += wanted;
    }
    return S_OK;
}

HRESULT InsertLargeValue(SqliteConnection& connection, std::int64_t partId, ULONG tag, const Bytes& bytes)
{
    std::int64_t id = 0;
    QV_RETURN_IF_FAILED(InsertValueRow(connection, partId, tag, bytes.size(), id));
    for (std::size_t done = 0; done < bytes.size(); done += kChunkSize) {
        const ByteView piece =
            ByteView(bytes).subspan(done, std::min<std::size_t>(kChunkSize, bytes.size() - done));
        QV_RETURN_IF_FAILED(InsertChunk(connection, id, static_cast<std::int64_t>(done / kChunkSize), piece));
    }
    return S_OK;
}

HRESULT CopyLargeValue(SqliteConnection& connection, std::int64_t valueId, std::int64_t partId, ULONG tag)
{
    QV_RETURN_IF_FAILED(connection.Run(
        "INSERT INTO large_value (part_id, tag, size) SELECT ?, ?, size FROM large_value WHERE id=?", partId,
        tag, valueId));
    if (connection.Changes() == 0)
        return MAPI_E_OBJECT_CHANGED;
    return connection.Run(
        "INSERT INTO chunk (value_id, number, data) SELECT ?, number, data FROM chunk WHERE value_id=?",
        connection.LastInsertId(), valueId);
}

}  // namespace quorvane
