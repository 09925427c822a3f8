#include "msgstore/props/property_codec.h"

#include "msgstore/props/little_endian.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// A run is one record a value: the tag (4 bytes), then for a single value or multiple values of a fixed
// size the byte count (4) and the bytes; for multiple strings or binaries the number of values (4), and
// for each its byte count (4) and its bytes.

bool HasItems(ULONG type) noexcept
{
    return (type & MV_FLAG) != 0 && FixedSize(type) == 0;
}

void AppendBlock(Bytes& to, const Bytes& block)
{
    AppendLittle(to, static_cast<std::uint32_t>(block.size()));
    to.insert(to.end(), block.begin(), block.end());
}

class Reader {
public:
    Reader(const void* bytes, std::size_t size) noexcept : at_(static_cast<const BYTE*>(bytes)), left_(size)
    {}

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

HRESULT ReadValue(Reader& reader, PropertyValue& value)
{
    QV_RETURN_IF_FAILED(reader.Number(value.tag));
    if (!IsStorableType(value.type()) || value.type() == PT_OBJECT)
        return MAPI_E_CORRUPT_DATA;
    QV_RETURN_IF_FAILED(HasItems(value.type()) ? reader.Items(value.items) : reader.Block(value.data));
    return SizeFits(value) ? S_OK : MAPI_E_CORRUPT_DATA;
}

bool GoesOutOfLine(const PropertyValue& value, std::uint64_t inlineLimit) noexcept
{
    if (value.large)
        return true;
    return FixedSize(value.type()) == 0 && !HasItems(value.type()) && value.data.size() > inlineLimit;
}

}  // namespace

void EncodeProperties(const PropertyBag& bag, std::uint64_t inlineLimit, Bytes& bytes,
                      std::vector<const PropertyValue*>& outOfLine)
{
    for (const PropertyValue& value : bag) {
        if (GoesOutOfLine(value, inlineLimit)) {
            outOfLine.push_back(&value);
            continue;
        }
        AppendLittle(bytes, static_cast<std::uint32_t>(value.tag));
        if (!HasItems(value.type())) {
            AppendBlock(bytes, value.data);
            continue;
        }
        AppendLittle(bytes, static_cast<std::uint32_t>(value.items.size()));
        for (const Bytes& item : value.items)
            AppendBlock(bytes, item);
    }
}

HRESULT DecodeProperties(const void* bytes, std::size_t size, PropertyBag& bag) noexcept
{
    return Guarded([&]() -> HRESULT {
        for (Reader reader(bytes, size); !reader.AtEnd();) {
            PropertyValue value;
            QV_RETURN_IF_FAILED(ReadValue(reader, value));
            bag.Put(std::move(value));
        }
        return S_OK;
    });
}

}  // namespace quorvane
