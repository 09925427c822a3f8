#include "msgstore/table/restriction_codec.h"

#include "msgstore/props/little_endian.h"
#include "msgstore/props/property_codec.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

constexpr std::size_t kLargestRestriction = 1024 * 1024;
// As deep as restrictions may be nested.
constexpr int kDeepestNode = 64;

class Encoder {
public:
    explicit Encoder(Bytes& bytes) noexcept : bytes_(bytes) {}

    HRESULT Node(const SRestriction& source)
    {
        if (bytes_.size() > kLargestRestriction)
            return MAPI_E_TOO_COMPLEX;
        Number(source.rt);
        switch (source.rt) {
            case RES_AND:
            case RES_OR:  // the two are laid out alike
                return Parts(source.res.resAnd.cRes, source.res.resAnd.lpRes);
            case RES_NOT:
                return Node(*source.res.resNot.lpRes);
            case RES_CONTENT:
                Numbers({source.res.resContent.ulFuzzyLevel, source.res.resContent.ulPropTag});
                return Value(*source.res.resContent.lpProp);
            case RES_PROPERTY:
                Numbers({source.res.resProperty.relop, source.res.resProperty.ulPropTag});
                return Value(*source.res.resProperty.lpProp);
            case RES_SUBRESTRICTION:
                Number(source.res.resSub.ulSubObject);
                return Node(*source.res.resSub.lpRes);
            case RES_COMMENT:
                return Comment(source.res.resComment);
            default:
                return Plain(source);
        }
    }

private:
    void Number(ULONG number) { AppendLittle<std::uint32_t>(bytes_, number); }
    void Numbers(std::initializer_list<ULONG> numbers)
    {
        for (const ULONG number : numbers)
            Number(number);
    }

    HRESULT Plain(const SRestriction& source)
    {
        switch (source.rt) {
            case RES_COMPAREPROPS:
                Numbers({source.res.resCompareProps.relop, source.res.resCompareProps.ulPropTag1,
                         source.res.resCompareProps.ulPropTag2});
                return S_OK;
            case RES_BITMASK:
                Numbers({source.res.resBitMask.relBMR, source.res.resBitMask.ulPropTag,
                         source.res.resBitMask.ulMask});
                return S_OK;
            case RES_SIZE:
                Numbers({source.res.resSize.relop, source.res.resSize.ulPropTag, source.res.resSize.cb});
                return S_OK;
            case RES_EXIST:
                Number(source.res.resExist.ulPropTag);
                return S_OK;
            default:
                return MAPI_E_INVALID_PARAMETER;
        }
    }

    HRESULT Parts(ULONG count, const SRestriction* parts)
    {
        Number(count);
        for (ULONG i = 0; i < count; ++i)
            QV_RETURN_IF_FAILED(Node(parts[i]));
        return S_OK;
    }

    HRESULT Comment(const SCommentRestriction& source)
    {
        if (source.cValues > 0 && !source.lpProp)
            return MAPI_E_INVALID_PARAMETER;
        Number(source.cValues);
        for (ULONG i = 0; i < source.cValues; ++i)
            QV_RETURN_IF_FAILED(Value(source.lpProp[i]));
        Number(source.lpRes ? 1 : 0);
        return source.lpRes ? Node(*source.lpRes) : S_OK;
    }

    HRESULT Value(const SPropValue& source)
    {
        SPropValue plain = source;
        // One value of a multi-valued property is laid out as a single one.
        if ((PROP_TYPE(plain.ulPropTag) & MVI_FLAG) == MVI_FLAG)
            plain.ulPropTag &= ~static_cast<ULONG>(MVI_FLAG);
        PropertyValue value;
        QV_RETURN_IF_FAILED(FromSPropValue(plain, value));
        PropertyBag bag;
        bag.Put(std::move(value));
        Bytes run;
        std::vector<const PropertyValue*> none;
        EncodeProperties(bag, RunForm::Plain, UINT64_MAX, run, none);
        if (run.size() > kLargestRestriction)
            return MAPI_E_TOO_COMPLEX;
        Numbers({source.ulPropTag, static_cast<ULONG>(run.size())});
        bytes_.insert(bytes_.end(), run.begin(), run.end());
        return S_OK;
    }

    Bytes& bytes_;
};

class Decoder {
public:
    Decoder(std::span<const BYTE> bytes, bool unicode, void* root) noexcept
        : bytes_(bytes), unicode_(unicode), root_(root)
    {}

    HRESULT Whole(SRestriction& result)
    {
        QV_RETURN_IF_FAILED(Node(result, 0));
        return bytes_.empty() ? S_OK : MAPI_E_CORRUPT_DATA;
    }

private:
    HRESULT Node(SRestriction& result, int depth)
    {
        if (depth >= kDeepestNode || !Take(result.rt))
            return MAPI_E_CORRUPT_DATA;
        switch (result.rt) {
            case RES_AND:
            case RES_OR:
                return Parts(result.res.resAnd.cRes, result.res.resAnd.lpRes, depth);
            case RES_NOT:
                return Part(result.res.resNot.lpRes, depth);
            case RES_CONTENT:
                return Compared(result.res.resContent.ulFuzzyLevel, result.res.resContent.ulPropTag,
                                result.res.resContent.lpProp);
            case RES_PROPERTY:
                return Compared(result.res.resProperty.relop, result.res.resProperty.ulPropTag,
                                result.res.resProperty.lpProp);
            case RES_SUBRESTRICTION:
                if (!Take(result.res.resSub.ulSubObject))
                    return MAPI_E_CORRUPT_DATA;
                return Part(result.res.resSub.lpRes, depth);
            case RES_COMMENT:
                return Comment(result.res.resComment, depth);
            default:
                return Plain(result);
        }
    }

    HRESULT Plain(SRestriction& result)
    {
        bool taken = false;
        if (result.rt == RES_COMPAREPROPS)
            taken = Take(result.res.resCompareProps.relop) && Take(result.res.resCompareProps.ulPropTag1) &&
                    Take(result.res.resCompareProps.ulPropTag2);
        else if (result.rt == RES_BITMASK)
            taken = Take(result.res.resBitMask.relBMR) && Take(result.res.resBitMask.ulPropTag) &&
                    Take(result.res.resBitMask.ulMask);
        else if (result.rt == RES_SIZE)
            taken = Take(result.res.resSize.relop) && Take(result.res.resSize.ulPropTag) &&
                    Take(result.res.resSize.cb);
        else if (result.rt == RES_EXIST)
            taken = Take(result.res.resExist.ulPropTag);
        return taken ? S_OK : MAPI_E_CORRUPT_DATA;
    }

    // A part takes four bytes at the least, and a value eight: no count asks for more memory than its bytes
    // are worth.
    template <class Element>
    HRESULT TakeArray(ULONG& count, Element*& elements)
    {
        if (!Take(count) || count > bytes_.size() / sizeof(std::uint32_t))
            return MAPI_E_CORRUPT_DATA;
        elements = static_cast<Element*>(MapiAllocator().AllocateMore(count * sizeof(Element), root_));
        return elements ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT Parts(ULONG& count, SRestriction*& parts, int depth)
    {
        QV_RETURN_IF_FAILED(TakeArray(count, parts));
        for (ULONG i = 0; i < count; ++i)
            QV_RETURN_IF_FAILED(Node(parts[i] = {}, depth + 1));
        return S_OK;
    }

    HRESULT Part(SRestriction*& part, int depth)
    {
        part = static_cast<SRestriction*>(MapiAllocator().AllocateMore(sizeof(SRestriction), root_));
        return part ? Node(*part = {}, depth + 1) : E_OUTOFMEMORY;
    }

    HRESULT Comment(SCommentRestriction& result, int depth)
    {
        QV_RETURN_IF_FAILED(TakeArray(result.cValues, result.lpProp));
        for (ULONG i = 0; i < result.cValues; ++i)
            QV_RETURN_IF_FAILED(Value(result.lpProp[i]));
        ULONG hasPart = 0;
        if (!Take(hasPart) || hasPart > 1)
            return MAPI_E_CORRUPT_DATA;
        return hasPart != 0 ? Part(result.lpRes, depth) : S_OK;
    }

    HRESULT Compared(ULONG& how, ULONG& tag, SPropValue*& value)
    {
        if (!Take(how) || !Take(tag))
            return MAPI_E_CORRUPT_DATA;
        value = static_cast<SPropValue*>(MapiAllocator().AllocateMore(sizeof(SPropValue), root_));
        if (!value)
            return E_OUTOFMEMORY;
        tag = InWidth(tag);
        return Value(*value);
    }

    HRESULT Value(SPropValue& result)
    {
        ULONG tag = 0;
        ULONG size = 0;
        if (!Take(tag) || !Take(size) || size > bytes_.size())
            return MAPI_E_CORRUPT_DATA;
        PropertyBag bag;
        QV_RETURN_IF_FAILED(DecodeProperties(bytes_.data(), size, bag));
        bytes_ = bytes_.subspan(size);
        if (bag.size() != 1 || bag.begin()->id() != PROP_ID(tag))
            return MAPI_E_CORRUPT_DATA;
        const PropertyValue& value = *bag.begin();
        QV_RETURN_IF_FAILED(ToSPropValue(value, PROP_TYPE(InWidth(value.tag)), MapiAllocator(), root_, result,
                                         0, kNoValueLimit));
        result.ulPropTag = InWidth(tag);
        return S_OK;
    }

    // Text in the width that was asked for, of one value and of several alike.
    ULONG InWidth(ULONG tag) const noexcept
    {
        const ULONG type = PROP_TYPE(tag) & ~static_cast<ULONG>(MVI_FLAG);
        if (type != PT_UNICODE && type != PT_STRING8)
            return tag;
        return CHANGE_PROP_TYPE(tag, (PROP_TYPE(tag) & MVI_FLAG) | ULONG{unicode_ ? PT_UNICODE : PT_STRING8});
    }

    bool Take(ULONG& number) noexcept
    {
        if (bytes_.size() < sizeof(std::uint32_t))
            return false;
        number = LoadLittle<std::uint32_t>(bytes_.data());
        bytes_ = bytes_.subspan(sizeof(std::uint32_t));
        return true;
    }

    std::span<const BYTE> bytes_;
    const bool unicode_;
    void* const root_;
};

}  // namespace

HRESULT EncodeRestriction(const SRestriction& source, Bytes& bytes) noexcept
{
    return Guarded([&]() -> HRESULT {
        bytes.clear();
        QV_RETURN_IF_FAILED(Encoder(bytes).Node(source));
        return bytes.size() > kLargestRestriction ? MAPI_E_TOO_COMPLEX : S_OK;
    });
}

HRESULT DecodeRestriction(std::span<const BYTE> bytes, bool unicode,
                          MapiBuffer<SRestriction>& result) noexcept
{
    return Guarded([&]() -> HRESULT {
        MapiBuffer<SRestriction> made(
            static_cast<SRestriction*>(MapiAllocator().Allocate(sizeof(SRestriction))));
        if (!made)
            return E_OUTOFMEMORY;
        made[0] = {};
        QV_RETURN_IF_FAILED(Decoder(bytes, unicode, made.Get()).Whole(made[0]));
        result = std::move(made);
        return S_OK;
    });
}

}  // namespace quorvane
