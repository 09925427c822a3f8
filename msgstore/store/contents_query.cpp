#include "msgstore/store/contents_query.h"

#include <algorithm>

#include "msgstore/store/contents_columns.h"
#include "msgstore/store/table_source.h"
#include "msgstore/table/text_fold.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

// A longer condition is judged row by row: SQLite bounds how deep an expression may be.
constexpr int kMostTerms = 200;

// A property of 32 bits is stored in 64, of which the lower half counts, with its sign.
std::string LongTerm(std::string_view name)
{
    return "((" + std::string(name) + " + 2147483648 & 4294967295) - 2147483648)";
}

std::string FoldedTerm(const ContentsColumn& column)
{
    if (!column.foldedName.empty())
        return std::string(column.foldedName);
    return "qv_fold(" + std::string(column.name) + ")";
}

// What the column's values are compared by.
std::string OrderTerm(const ContentsColumn& column)
{
    if (column.kind == ColumnKind::Text)
        return FoldedTerm(column);
    return column.kind == ColumnKind::Long ? LongTerm(column.name) : std::string(column.name);
}

constexpr std::string_view kHasAttachTerm = "(flags & 16 <> 0)";
static_assert(MSGFLAG_HASATTACH == 16);

const char* Operator(ULONG relation) noexcept
{
    constexpr const char* operators[] = {" < ", " <= ", " > ", " >= ", " = "};
    static_assert(RELOP_LT == 0 && RELOP_LE == 1 && RELOP_GT == 2 && RELOP_GE == 3 && RELOP_EQ == 4);
    return operators[relation];
}

bool IsNumber(ULONG type) noexcept
{
    return type == PT_I2 || type == PT_LONG || type == PT_I8 || type == PT_BOOLEAN || type == PT_CURRENCY;
}

// Text that UTF-8 can hold comes back as it was.
bool InUtf8(const OleString& text, std::string& utf8)
{
    utf8 = ToUtf8(text);
    return FromUtf8(utf8) == text;
}

class Translator final : public RestrictionTranslator {
public:
    Translator(const ObjectGuid* store, SqlCondition& condition) noexcept
        : store_(store), condition_(condition)
    {}

    bool Every() override { return Put("1"); }

    bool Group(bool all, const std::vector<std::shared_ptr<const Restriction>>& parts) override
    {
        if (parts.empty())
            return Put(all ? "1" : "0");
        for (std::size_t i = 0; i < parts.size(); ++i) {
            condition_.text += i == 0 ? "(" : (all ? " AND " : " OR ");
            if (!parts[i]->Translate(*this))
                return false;
        }
        condition_.text += ")";
        return true;
    }

    bool Not(const Restriction& part) override
    {
        condition_.text += "NOT (";
        if (!part.Translate(*this))
            return false;
        condition_.text += ")";
        return true;
    }

    bool Comparison(ULONG relation, ULONG tag, const PropertyValue& operand) override
    {
        const ContentsColumn* const column = FindContentsColumn(tag);
        if (!column)
            return CompareMade(relation, tag, operand);
        const std::string term = OrderTerm(*column);
        switch (column->kind) {
            case ColumnKind::Text:
                return IsSingleText(operand.type()) &&
                       Compare(term, relation, ToUtf8(Fold(operand.AsText())));
            case ColumnKind::Long:
                return IsNumber(operand.type()) && Compare(term, relation, operand.AsInteger());
            case ColumnKind::Time:
                return operand.type() == PT_SYSTIME && Compare(term, relation, TicksOf(operand));
            case ColumnKind::Binary:
                return operand.type() == PT_BINARY && !operand.large && Compare(term, relation, operand.data);
        }
        return false;
    }

    bool Content(ULONG level, ULONG tag, const PropertyValue& operand) override
    {
        const ContentsColumn* const column = FindContentsColumn(tag);
        if (!column || column->kind != ColumnKind::Text || !IsSingleText(operand.type()) ||
            (level & (FL_IGNORENONSPACE | FL_LOOSE)) != 0)
            return false;
        const bool folds = (level & FL_IGNORECASE) != 0;
        const OleString text = operand.AsText();
        std::string wanted;
        return InUtf8(folds ? Fold(text) : text, wanted) &&
               Contains(folds ? FoldedTerm(*column) : std::string(column->name), level & 0xFFFF,
                        std::move(wanted));
    }

    bool BitMask(bool zero, ULONG tag, ULONG mask) override
    {
        const ContentsColumn* const column = FindContentsColumn(tag);
        if (!column || column->kind != ColumnKind::Long || !TypeFits(PROP_TYPE(tag), PT_LONG))
            return false;
        const std::string name(column->name);
        condition_.values.emplace_back(static_cast<std::int64_t>(mask));
        return Put("(" + name + " IS NOT NULL AND " + name + " & ?" + (zero ? " = 0)" : " <> 0)"));
    }

    bool Existence(ULONG tag) override
    {
        const ContentsColumn* const column = FindContentsColumn(tag);
        return column && Put("(" + std::string(column->name) + " IS NOT NULL)");
    }

private:
    static bool IsSingleText(ULONG type) noexcept { return type == PT_STRING8 || type == PT_UNICODE; }

    static std::int64_t TicksOf(const PropertyValue& value) noexcept
    {
        const FILETIME time = value.AsTime();
        return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
    }

    bool Put(std::string_view text)
    {
        condition_.text += text;
        return ++terms_ <= kMostTerms;
    }

    template <class Value>
    bool Compare(const std::string& term, ULONG relation, Value value)
    {
        if (relation == RELOP_NE) {
            condition_.values.emplace_back(std::move(value));
            return Put("(" + term + " IS NOT ?)");
        }
        condition_.values.emplace_back(std::move(value));
        return Put("(" + term + " IS NOT NULL AND " + term + Operator(relation) + "?)");
    }

    bool Contains(const std::string& term, ULONG match, std::string wanted)
    {
        if (match == FL_FULLSTRING)
            return Compare(term, RELOP_EQ, std::move(wanted));
        if (wanted.empty())
            return Put("(" + term + " IS NOT NULL)");
        if (match == FL_SUBSTRING) {
            condition_.values.emplace_back(std::move(wanted));
            return Put("(" + term + " IS NOT NULL AND instr(" + term + ", ?) > 0)");
        }
        // The first text behind all that begin so: no byte of UTF-8 is the last one.
        std::string behind = wanted;
        behind.back() = static_cast<char>(behind.back() + 1);
        condition_.values.emplace_back(std::move(wanted));
        condition_.values.emplace_back(std::move(behind));
        return Put("(" + term + " IS NOT NULL AND " + term + " >= ? AND " + term + " < ?)");
    }

    // Of the properties that a row has by what it is.
    bool CompareMade(ULONG relation, ULONG tag, const PropertyValue& operand)
    {
        if (PROP_ID(tag) == PROP_ID(PR_HASATTACH))
            return IsNumber(operand.type()) &&
                   Compare(std::string(kHasAttachTerm), relation, operand.AsInteger());
        if (operand.type() != PT_BINARY || operand.large)
            return false;
        if (PROP_ID(tag) == PROP_ID(PR_RECORD_KEY))
            return Compare("guid", relation, operand.data);
        return PROP_ID(tag) == PROP_ID(PR_ENTRYID) && relation == RELOP_EQ && CompareEntryId(operand.data);
    }

    bool CompareEntryId(const Bytes& id)
    {
        if (!store_)
            return false;
        EntryId parsed;
        // Equal to the byte, or not at all.
        if (FAILED(ParseEntryId(id.data(), id.size(), parsed)) || parsed.isShortTerm ||
            LongTermId(*store_, MAPI_MESSAGE, parsed.object) != id)
            return Put("0");
        return Compare("guid", RELOP_EQ, Bytes(parsed.object.begin(), parsed.object.end()));
    }

    const ObjectGuid* const store_;
    SqlCondition& condition_;
    int terms_ = 0;
};

}  // namespace

void SqlCondition::BindTo(SqliteRows& rows) const
{
    for (const auto& value : values) {
        if (const auto* const number = std::get_if<std::int64_t>(&value))
            rows.Bind(*number);
        else if (const auto* const units = std::get_if<std::string>(&value))
            rows.Bind(std::string_view(*units));
        else
            rows.Bind(ByteView(std::get<Bytes>(value)));
    }
}

bool TranslateRestriction(const Restriction& restriction, const ObjectGuid* store, SqlCondition& condition)
{
    condition = {};
    Translator translator(store, condition);
    return restriction.Translate(translator);
}

bool TranslateSortColumn(const SortColumn& column, std::string& term)
{
    term.clear();
    const ContentsColumn* const found = FindContentsColumn(column.tag);
    if (found) {
        if (TypeFits(PROP_TYPE(column.tag), PROP_TYPE(found->tag)))
            term = OrderTerm(*found);
        return true;
    }
    if (PROP_ID(column.tag) != PROP_ID(PR_HASATTACH))
        return false;
    if (TypeFits(PROP_TYPE(column.tag), PT_BOOLEAN))
        term = kHasAttachTerm;
    return true;
}

}  // namespace quorvane
