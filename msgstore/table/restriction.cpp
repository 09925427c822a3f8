#include "msgstore/table/restriction.h"

#include <algorithm>

#include "msgstore/props/little_endian.h"
#include "msgstore/table/text_fold.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

using RestrictionPtr = std::shared_ptr<const Restriction>;

constexpr ULONG kDeepest = 64;

bool Holds(int order, ULONG relation) noexcept
{
    switch (relation) {
        case RELOP_LT:
            return order < 0;
        case RELOP_LE:
            return order <= 0;
        case RELOP_GT:
            return order > 0;
        case RELOP_GE:
            return order >= 0;
        case RELOP_EQ:
            return order == 0;
        default:
            return order != 0;
    }
}

// The tag as the row knows it: without the mark that asks for one row a value.
ULONG PlainTag(ULONG tag) noexcept
{
    return tag & ~static_cast<ULONG>(MV_INSTANCE);
}

// The values of a property one by one: a multi-valued one is as many single ones.
std::vector<PropertyValue> SingleValues(const PropertyValue& value)
{
    if ((value.type() & MV_FLAG) == 0)
        return {value};
    std::vector<PropertyValue> singles;
    PropertyValue one;
    one.tag = value.tag & ~static_cast<ULONG>(MV_FLAG);
    for (const Bytes& item : value.items) {
        one.data = item;
        singles.push_back(one);
    }
    const std::size_t width = FixedSize(value.type());
    for (std::size_t at = 0; width > 0 && at + width <= value.data.size(); at += width) {
        one.data.assign(value.data.begin() + static_cast<std::ptrdiff_t>(at),
                        value.data.begin() + static_cast<std::ptrdiff_t>(at + width));
        singles.push_back(one);
    }
    return singles;
}

class EveryRow final : public Restriction {
public:
    bool Matches(const PropertyLookup&) const override { return true; }
    bool Translate(RestrictionTranslator& translator) const override { return translator.Every(); }
};

class Group final : public Restriction {
public:
    Group(bool all, std::vector<RestrictionPtr> parts) : all_(all), parts_(std::move(parts)) {}
    bool Matches(const PropertyLookup& row) const override
    {
        const auto matches = [&](const RestrictionPtr& part) { return part->Matches(row); };
        return all_ ? std::all_of(parts_.begin(), parts_.end(), matches)
                    : std::any_of(parts_.begin(), parts_.end(), matches);
    }
    bool Translate(RestrictionTranslator& translator) const override
    {
        return translator.Group(all_, parts_);
    }

private:
    bool all_;
    std::vector<RestrictionPtr> parts_;
};

class Negation final : public Restriction {
public:
    explicit Negation(RestrictionPtr part) : part_(std::move(part)) {}
    bool Matches(const PropertyLookup& row) const override { return !part_->Matches(row); }
    bool Translate(RestrictionTranslator& translator) const override { return translator.Not(*part_); }

private:
    RestrictionPtr part_;
};

class Comparison final : public Restriction {
public:
    Comparison(ULONG relation, ULONG tag, PropertyValue operand)
        : relation_(relation), tag_(PlainTag(tag)), operand_(std::move(operand))
    {}
    bool Matches(const PropertyLookup& row) const override
    {
        const PropertyValue* value = row.Find(tag_);
        if (!value)
            value = row.Find(CHANGE_PROP_TYPE(tag_, PT_UNSPECIFIED));
        if (!value)
            return relation_ == RELOP_NE;
        if ((value->type() & MV_FLAG) == 0 || (operand_.type() & MV_FLAG) != 0)
            return Holds(CompareValues(value, &operand_), relation_);
        const auto singles = SingleValues(*value);
        return std::any_of(singles.begin(), singles.end(), [&](const PropertyValue& single) {
            return Holds(CompareValues(&single, &operand_), relation_);
        });
    }
    bool Translate(RestrictionTranslator& translator) const override
    {
        return translator.Comparison(relation_, tag_, operand_);
    }

private:
    ULONG relation_;
    ULONG tag_;
    PropertyValue operand_;
};

class PairComparison final : public Restriction {
public:
    PairComparison(ULONG relation, ULONG first, ULONG second)
        : relation_(relation), first_(first), second_(second)
    {}
    bool Matches(const PropertyLookup& row) const override
    {
        const PropertyValue* const found = row.Find(first_);
        if (!found)
            return relation_ == RELOP_NE;
        const PropertyValue first = *found;  // the next lookup may take its place
        const PropertyValue* const second = row.Find(second_);
        return second ? Holds(CompareValues(&first, second), relation_) : relation_ == RELOP_NE;
    }

private:
    ULONG relation_;
    ULONG first_;
    ULONG second_;
};

class Content final : public Restriction {
public:
    Content(ULONG level, ULONG tag, PropertyValue operand)
        : level_(level), tag_(PlainTag(tag)), operand_(std::move(operand)), text_(Prepare(operand_.AsText()))
    {}
    bool Matches(const PropertyLookup& row) const override
    {
        const PropertyValue* const value = row.Find(CHANGE_PROP_TYPE(tag_, PT_UNSPECIFIED));
        if (!value)
            return false;
        const auto singles = SingleValues(*value);
        return std::any_of(singles.begin(), singles.end(),
                           [&](const PropertyValue& single) { return Contains(single); });
    }
    bool Translate(RestrictionTranslator& translator) const override
    {
        return translator.Content(level_, tag_, operand_);
    }

private:
    OleString Prepare(OleString text) const
    {
        if ((level_ & (FL_IGNORENONSPACE | FL_LOOSE)) != 0)
            text = WithoutMarks(text);
        return (level_ & (FL_IGNORECASE | FL_LOOSE)) != 0 ? Fold(text) : text;
    }

    bool Contains(const PropertyValue& value) const
    {
        if (IsTextType(value.type()) != IsTextType(operand_.type()))
            return false;
        if (IsTextType(value.type()))
            return ContainsRun(Prepare(value.AsText()), text_);
        if (value.type() != PT_BINARY || operand_.type() != PT_BINARY)
            return CompareValues(&value, &operand_) == 0;
        Bytes whole = value.data;
        if (value.large && FAILED(ReadWhole(*value.large, kWholeTextLimit, whole)))
            return false;
        return ContainsRun(whole, operand_.data);
    }

    template <class Run>
    bool ContainsRun(const Run& whole, const Run& part) const
    {
        switch (level_ & 0xFFFF) {
            case FL_SUBSTRING:
                return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end() ||
                       part.empty();
            case FL_PREFIX:
                return whole.size() >= part.size() && std::equal(part.begin(), part.end(), whole.begin());
            default:
                return whole == part;
        }
    }

    ULONG level_;
    ULONG tag_;
    PropertyValue operand_;
    OleString text_;
};

class BitMask final : public Restriction {
public:
    explicit BitMask(const SBitMaskRestriction& source)
        : zero_(source.relBMR == BMR_EQZ), tag_(source.ulPropTag), mask_(source.ulMask)
    {}
    bool Matches(const PropertyLookup& row) const override
    {
        const PropertyValue* const value = row.Find(tag_);
        return value && ((static_cast<ULONG>(value->AsInteger()) & mask_) == 0) == zero_;
    }
    bool Translate(RestrictionTranslator& translator) const override
    {
        return translator.BitMask(zero_, tag_, mask_);
    }

private:
    bool zero_;
    ULONG tag_;
    ULONG mask_;
};

class Size final : public Restriction {
public:
    explicit Size(const SSizeRestriction& source)
        : relation_(source.relop), tag_(PlainTag(source.ulPropTag)), size_(source.cb)
    {}
    bool Matches(const PropertyLookup& row) const override
    {
        const PropertyValue* const value = row.Find(CHANGE_PROP_TYPE(tag_, PT_UNSPECIFIED));
        if (!value)
            return false;
        const std::uint64_t size = value->ByteSize();
        return Holds(size < size_ ? -1 : (size > size_ ? 1 : 0), relation_);
    }

private:
    ULONG relation_;
    ULONG tag_;
    ULONG size_;
};

class Existence final : public Restriction {
public:
    explicit Existence(ULONG tag) : tag_(CHANGE_PROP_TYPE(tag, PT_UNSPECIFIED)) {}
    bool Matches(const PropertyLookup& row) const override { return row.Find(tag_) != nullptr; }
    bool Translate(RestrictionTranslator& translator) const override { return translator.Existence(tag_); }

private:
    ULONG tag_;
};

class SubRestriction final : public Restriction {
public:
    SubRestriction(ULONG table, RestrictionPtr part) : table_(table), part_(std::move(part)) {}
    bool Matches(const PropertyLookup& row) const override
    {
        const std::vector<PropertyBag>* const rows = row.SubRows(table_);
        return rows && std::any_of(rows->begin(), rows->end(), [&](const PropertyBag& subRow) {
                   return part_->Matches(BagLookup(subRow));
               });
    }

private:
    ULONG table_;
    RestrictionPtr part_;
};

HRESULT CheckRelation(ULONG relation) noexcept
{
    if (relation == RELOP_RE)
        return MAPI_E_TOO_COMPLEX;
    return relation <= RELOP_NE ? S_OK : MAPI_E_INVALID_PARAMETER;
}

HRESULT ReadOperand(const SPropValue* source, PropertyValue& operand)
{
    if (!source)
        return MAPI_E_INVALID_PARAMETER;
    SPropValue plain = *source;
    // One value of a multi-valued property is marked as an instance and laid out as a single value.
    if ((PROP_TYPE(plain.ulPropTag) & MVI_FLAG) == MVI_FLAG)
        plain.ulPropTag &= ~static_cast<ULONG>(MVI_FLAG);
    return FromSPropValue(plain, operand);
}

HRESULT MakeNode(const SRestriction* source, ULONG depth, RestrictionPtr& result);

HRESULT MakeGroup(bool all, ULONG count, const SRestriction* parts, ULONG depth, RestrictionPtr& result)
{
    if (count > 0 && !parts)
        return MAPI_E_INVALID_PARAMETER;
    std::vector<RestrictionPtr> made;
    for (ULONG i = 0; i < count; ++i) {
        RestrictionPtr part;
        QV_RETURN_IF_FAILED(MakeNode(&parts[i], depth + 1, part));
        made.push_back(std::move(part));
    }
    result = std::make_shared<Group>(all, std::move(made));
    return S_OK;
}

HRESULT MakeNegation(const SRestriction* source, ULONG depth, RestrictionPtr& result)
{
    RestrictionPtr part;
    QV_RETURN_IF_FAILED(MakeNode(source, depth + 1, part));
    result = std::make_shared<Negation>(std::move(part));
    return S_OK;
}

HRESULT MakeComparison(const SPropertyRestriction& source, RestrictionPtr& result)
{
    PropertyValue operand;
    QV_RETURN_IF_FAILED(CheckRelation(source.relop));
    QV_RETURN_IF_FAILED(ReadOperand(source.lpProp, operand));
    result = std::make_shared<Comparison>(source.relop, source.ulPropTag, std::move(operand));
    return S_OK;
}

HRESULT MakePair(const SComparePropsRestriction& source, RestrictionPtr& result)
{
    QV_RETURN_IF_FAILED(CheckRelation(source.relop));
    result = std::make_shared<PairComparison>(source.relop, source.ulPropTag1, source.ulPropTag2);
    return S_OK;
}

HRESULT MakeContent(const SContentRestriction& source, RestrictionPtr& result)
{
    if ((source.ulFuzzyLevel & 0xFFFF) > FL_PREFIX)
        return MAPI_E_INVALID_PARAMETER;
    PropertyValue operand;
    QV_RETURN_IF_FAILED(ReadOperand(source.lpProp, operand));
    result = std::make_shared<Content>(source.ulFuzzyLevel, source.ulPropTag, std::move(operand));
    return S_OK;
}

HRESULT MakeBitMask(const SBitMaskRestriction& source, RestrictionPtr& result)
{
    if (source.relBMR != BMR_EQZ && source.relBMR != BMR_NEZ)
        return MAPI_E_INVALID_PARAMETER;
    result = std::make_shared<BitMask>(source);
    return S_OK;
}

HRESULT MakeSize(const SSizeRestriction& source, RestrictionPtr& result)
{
    QV_RETURN_IF_FAILED(CheckRelation(source.relop));
    result = std::make_shared<Size>(source);
    return S_OK;
}

HRESULT MakeComment(const SRestriction* source, ULONG depth, RestrictionPtr& result)
{
    if (source)
        return MakeNode(source, depth + 1, result);
    result = std::make_shared<EveryRow>();
    return S_OK;
}

HRESULT MakeSub(const SSubRestriction& source, ULONG depth, RestrictionPtr& result)
{
    const ULONG table = PROP_ID(source.ulSubObject);
    if (table != PROP_ID(PR_MESSAGE_RECIPIENTS) && table != PROP_ID(PR_MESSAGE_ATTACHMENTS))
        return MAPI_E_TOO_COMPLEX;
    RestrictionPtr part;
    QV_RETURN_IF_FAILED(MakeNode(source.lpRes, depth + 1, part));
    result = std::make_shared<SubRestriction>(source.ulSubObject, std::move(part));
    return S_OK;
}

HRESULT MakeNode(const SRestriction* source, ULONG depth, RestrictionPtr& result)
{
    if (!source)
        return MAPI_E_INVALID_PARAMETER;
    if (depth >= kDeepest)
        return MAPI_E_TOO_COMPLEX;
    switch (source->rt) {
        case RES_AND:
            return MakeGroup(true, source->res.resAnd.cRes, source->res.resAnd.lpRes, depth, result);
        case RES_OR:
            return MakeGroup(false, source->res.resOr.cRes, source->res.resOr.lpRes, depth, result);
        case RES_NOT:
            return MakeNegation(source->res.resNot.lpRes, depth, result);
        case RES_CONTENT:
            return MakeContent(source->res.resContent, result);
        case RES_PROPERTY:
            return MakeComparison(source->res.resProperty, result);
        case RES_COMPAREPROPS:
            return MakePair(source->res.resCompareProps, result);
        case RES_BITMASK:
            return MakeBitMask(source->res.resBitMask, result);
        case RES_SIZE:
            return MakeSize(source->res.resSize, result);
        case RES_EXIST:
            result = std::make_shared<Existence>(source->res.resExist.ulPropTag);
            return S_OK;
        case RES_COMMENT:
            return MakeComment(source->res.resComment.lpRes, depth, result);
        case RES_SUBRESTRICTION:
            return MakeSub(source->res.resSub, depth, result);
        default:
            return MAPI_E_INVALID_PARAMETER;
    }
}

}  // namespace

HRESULT Restriction::Make(const SRestriction* source, std::shared_ptr<const Restriction>& result) noexcept
{
    result.reset();
    return Guarded([&]() -> HRESULT {
        RestrictionPtr made = std::make_shared<EveryRow>();
        if (source)
            QV_RETURN_IF_FAILED(MakeNode(source, 0, made));
        result = std::move(made);
        return S_OK;
    });
}

}  // namespace quorvane
