// Random restrictions and sorts: a table gives the rows that a plain evaluation of the same properties in
// memory gives, in the same order. A run with one seed is told by QUORVANE_SEED; without it the seeds are
// always the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <random>

#include "msgstore/store/test_mailbox.h"
#include "msgstore/table/restriction.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

constexpr int kRandomQueries = 2000;
constexpr int kQueriedMessages = 150;
constexpr int kChangesEvery = 40;
constexpr ULONG kOtherNumber = PROP_TAG(PT_LONG, 0x6710);
constexpr ULONG kOtherText = PROP_TAG(PT_UNICODE, 0x6711);
constexpr ULONG kOtherReal = PROP_TAG(PT_DOUBLE, 0x6712);
constexpr ULONG kOtherBytes = PROP_TAG(PT_BINARY, 0x6713);
constexpr ULONG kManyTexts = PROP_TAG(PT_MV_UNICODE, 0x6714);

constexpr ULONG kAsked[] = {PR_ENTRYID,
                            PR_RECORD_KEY,
                            PR_INSTANCE_KEY,
                            PR_SUBJECT_W,
                            PR_NORMALIZED_SUBJECT_W,
                            PR_SENDER_NAME_W,
                            PR_DISPLAY_TO_W,
                            PR_MESSAGE_CLASS_W,
                            PR_MESSAGE_FLAGS,
                            PR_MESSAGE_SIZE,
                            PR_IMPORTANCE,
                            PR_MESSAGE_DELIVERY_TIME,
                            PR_CREATION_TIME,
                            PR_LAST_MODIFICATION_TIME,
                            PR_HASATTACH,
                            PR_SEARCH_KEY,
                            kOtherNumber,
                            kOtherText,
                            kOtherReal,
                            kOtherBytes,
                            kManyTexts};
constexpr std::size_t kAskedCount = std::size(kAsked);

// What a row was as the table gave it.
struct PlainRow {
    BinaryValue id;
    std::int64_t number = 0;
    PropertyBag values;
};

class DrawnValues {
public:
    explicit DrawnValues(unsigned seed) : random_(seed) {}

    unsigned Below(unsigned end) { return static_cast<unsigned>(random_() % end); }
    bool Chance(unsigned of) { return Below(of) == 0; }
    OleString Text()
    {
        static const OleStringView words[] = {OLESTR("Plan"),       OLESTR("plan"),     OLESTR("\u00C4rger"),
                                              OLESTR("\u00E4rger"), OLESTR("\u0416uk"), OLESTR("\uFF21"),
                                              OLESTR("\U0001F600"), OLESTR("a%_b"),     OLESTR("")};
        OleString text(words[Below(std::size(words))]);
        if (Chance(2))
            text += words[Below(std::size(words))];
        return text;
    }
    LONG Number() { return static_cast<LONG>(Below(7)) - 3; }
    FILETIME Time() { return {Below(4), 0x01DA0000u + Below(3)}; }
    BinaryValue Some()
    {
        BinaryValue bytes(Below(4));
        for (BYTE& byte : bytes)
            byte = static_cast<BYTE>(Below(3));
        return bytes;
    }

private:
    std::mt19937 random_;
};

// Restrictions with all that they point at.
class RestrictionMaker {
public:
    RestrictionMaker(DrawnValues& draw, const std::vector<PlainRow>& rows) : draw_(draw), rows_(rows) {}

    SRestriction Make(int depth)
    {
        SRestriction made{};
        switch (depth > 0 ? draw_.Below(8) : 3 + draw_.Below(5)) {
            case 0:
            case 1:
                made.rt = draw_.Chance(2) ? RES_AND : RES_OR;
                MakeParts(made.res.resAnd.cRes, made.res.resAnd.lpRes, draw_.Below(4), depth);
                break;
            case 2: {
                made.rt = RES_NOT;
                ULONG one = 0;
                made.res.resNot.ulReserved = 0;
                MakeParts(one, made.res.resNot.lpRes, 1, depth);
                break;
            }
            case 3:
            case 4:
                made.rt = RES_PROPERTY;
                made.res.resProperty.relop = draw_.Below(6);
                made.res.resProperty.lpProp = Operand(made.res.resProperty.ulPropTag);
                break;
            case 5:
                made.rt = RES_CONTENT;
                made.res.resContent.ulFuzzyLevel = draw_.Below(3) | (draw_.Chance(2) ? FL_IGNORECASE : 0) |
                                                   (draw_.Chance(6) ? FL_LOOSE : 0) |
                                                   (draw_.Chance(6) ? FL_IGNORENONSPACE : 0);
                made.res.resContent.lpProp = Operand(made.res.resContent.ulPropTag);
                break;
            case 6:
                made.rt = RES_BITMASK;
                made.res.resBitMask.relBMR = draw_.Chance(2) ? BMR_EQZ : BMR_NEZ;
                made.res.resBitMask.ulPropTag =
                    draw_.Chance(3) ? kOtherNumber : (draw_.Chance(2) ? PR_MESSAGE_FLAGS : PR_IMPORTANCE);
                made.res.resBitMask.ulMask = draw_.Below(32);
                break;
            default:
                made.rt = RES_EXIST;
                made.res.resExist.ulPropTag = Tag();
                break;
        }
        return made;
    }

private:
    ULONG Tag() { return kAsked[draw_.Below(kAskedCount)]; }

    void MakeParts(ULONG& count, SRestriction*& parts, unsigned wanted, int depth)
    {
        auto& kept = parts_.emplace_back();
        for (unsigned i = 0; i < wanted; ++i)
            kept.push_back(Make(depth - 1));
        count = wanted;
        parts = kept.data();
    }

    // A value that some row may have, sometimes of a type that none can.
    SPropValue* Operand(ULONG& tag)
    {
        tag = Tag();
        SPropValue& value = values_.emplace_back();
        value.ulPropTag = PROP_TYPE(tag) == PT_MV_UNICODE ? CHANGE_PROP_TYPE(tag, PT_UNICODE) : tag;
        if (draw_.Chance(10))
            value.ulPropTag = CHANGE_PROP_TYPE(tag, draw_.Chance(2) ? PT_LONG : PT_UNICODE);
        switch (PROP_TYPE(value.ulPropTag)) {
            case PT_UNICODE:
                value.Value.lpszW = const_cast<OLECHAR*>(texts_.emplace_back(draw_.Text()).c_str());
                break;
            case PT_LONG:
                value.Value.l = draw_.Number();
                break;
            case PT_BOOLEAN:
                value.Value.b = draw_.Chance(2) ? 1 : 0;
                break;
            case PT_DOUBLE:
                value.Value.dbl = draw_.Number() / 2.0;
                break;
            case PT_SYSTIME:
                value.Value.ft = TimeOfRow(tag);
                break;
            default:
                PutBytes(tag, value.Value.bin);
                break;
        }
        return &value;
    }

    FILETIME TimeOfRow(ULONG tag)
    {
        const PropertyValue* const value = ValueOfRow(tag);
        return value && draw_.Chance(2) ? value->AsTime() : draw_.Time();
    }
    void PutBytes(ULONG tag, SBinary& binary)
    {
        const PropertyValue* const value = ValueOfRow(tag);
        BinaryValue& kept = bytes_.emplace_back(value && draw_.Chance(2) ? value->data : draw_.Some());
        binary = {static_cast<ULONG>(kept.size()), kept.data()};
    }
    const PropertyValue* ValueOfRow(ULONG tag)
    {
        return rows_.empty() ? nullptr
                             : rows_[draw_.Below(static_cast<unsigned>(rows_.size()))].values.Find(tag);
    }

    DrawnValues& draw_;
    const std::vector<PlainRow>& rows_;
    std::deque<std::vector<SRestriction>> parts_;
    std::deque<SPropValue> values_;
    std::deque<OleString> texts_;
    std::deque<BinaryValue> bytes_;
};

class RandomQueryTest : public ::testing::Test {
protected:
    void Fill(DrawnValues& draw, IMessage& message)
    {
        if (!draw.Chance(6)) {
            EXPECT_EQ(
                SetText(message, PR_SUBJECT_W, (draw.Chance(3) ? OLESTR("Re: ") : OLESTR("")) + draw.Text()),
                S_OK);
        }
        if (draw.Chance(2)) {
            EXPECT_EQ(SetText(message, PR_SENDER_NAME_W, draw.Text()), S_OK);
        }
        if (draw.Chance(2)) {
            EXPECT_EQ(SetLong(message, PR_IMPORTANCE, draw.Number()), S_OK);
        }
        if (draw.Chance(2)) {
            EXPECT_EQ(SetLong(message, kOtherNumber, draw.Number()), S_OK);
        }
        if (draw.Chance(2)) {
            EXPECT_EQ(SetText(message, kOtherText, draw.Text()), S_OK);
        }
        if (draw.Chance(2)) {
            EXPECT_EQ(SetBinary(message, kOtherBytes, draw.Some()), S_OK);
        }
        SetOthers(draw, message);
    }
    static void SetOthers(DrawnValues& draw, IMessage& message)
    {
        SPropValue values[3]{};
        values[0].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        values[0].Value.ft = draw.Time();
        values[1].ulPropTag = kOtherReal;
        values[1].Value.dbl = draw.Number() / 2.0;
        OleString one = draw.Text();
        OleString other = draw.Text();
        LPWSTR texts[] = {one.data(), other.data()};
        values[2].ulPropTag = kManyTexts;
        values[2].Value.MVszW = {2, texts};
        const ULONG first = draw.Chance(3) ? 1 : 0;
        EXPECT_EQ(message.SetProps(draw.Chance(3) ? 2 - first : 3 - first, values + first, nullptr), S_OK);
    }
    void AddOne(DrawnValues& draw)
    {
        ComPtr<IMessage> message;
        ASSERT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, message.Put()), S_OK);
        Fill(draw, *message);
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE | MAPI_DEFERRED_ERRORS), S_OK);
        ids.push_back(BinaryOf(*message, PR_ENTRYID));
    }
    void ChangeSome(DrawnValues& draw)
    {
        for (int i = 0; i < 6; ++i) {
            const std::size_t at = draw.Below(static_cast<unsigned>(ids.size()));
            if (draw.Chance(4)) {
                ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), ids[at]), S_OK);
                ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(at));
                AddOne(draw);
            } else {
                const ComPtr<IMessage> message = mailbox.OpenMessage(ids[at]);
                Fill(draw, *message);
                ASSERT_EQ(message->SaveChanges(MAPI_DEFERRED_ERRORS), S_OK);
            }
        }
    }

    ComPtr<IMAPITable> OpenTable()
    {
        ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox(), MAPI_UNICODE);
        SizedSPropTagArray(kAskedCount, columns) = {kAskedCount, {}};
        std::copy(std::begin(kAsked), std::end(kAsked), columns.aulPropTag);
        EXPECT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
        return table;
    }
    static std::vector<PlainRow> ReadAll(IMAPITable& table)
    {
        EXPECT_EQ(table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
        RowSet rows;
        EXPECT_EQ(table.QueryRows(100000, 0, rows.Put()), S_OK);
        std::vector<PlainRow> all;
        for (const SRow& row : rows) {
            PlainRow& plain = all.emplace_back();
            plain.id = BinaryOf(row, PR_ENTRYID);
            for (ULONG i = 0; i < row.cValues; ++i) {
                PropertyValue value;
                if (SUCCEEDED(FromSPropValue(row.lpProps[i], value)))
                    plain.values.Put(std::move(value));
            }
            const BinaryValue key = BinaryOf(row, PR_INSTANCE_KEY);
            for (std::size_t i = key.size(); i > 0; --i)
                plain.number = plain.number << 8 | key[i - 1];
        }
        return all;
    }

    // The plain evaluation.
    static std::vector<BinaryValue> Evaluate(std::vector<PlainRow> rows, const Restriction* restriction,
                                             const std::vector<SortColumn>& sort)
    {
        std::sort(rows.begin(), rows.end(), [&](const PlainRow& a, const PlainRow& b) {
            const int order = CompareRows(BagLookup(a.values), BagLookup(b.values), sort);
            return order != 0 ? order < 0 : a.number < b.number;
        });
        std::vector<BinaryValue> kept;
        for (const PlainRow& row : rows) {
            if (!restriction || restriction->Matches(BagLookup(row.values)))
                kept.push_back(row.id);
        }
        return kept;
    }
    static std::vector<BinaryValue> IdsOf(const std::vector<PlainRow>& rows)
    {
        std::vector<BinaryValue> all;
        for (const PlainRow& row : rows)
            all.push_back(row.id);
        return all;
    }

    static std::vector<SortColumn> DrawSort(DrawnValues& draw)
    {
        std::vector<SortColumn> sort(draw.Below(4));
        for (SortColumn& column : sort)
            column = {kAsked[draw.Below(kAskedCount)], draw.Chance(2)};
        return sort;
    }
    static void Sort(IMAPITable& table, const std::vector<SortColumn>& columns)
    {
        SizedSSortOrderSet(4, order) = {static_cast<ULONG>(columns.size()), 0, 0, {}};
        for (std::size_t i = 0; i < columns.size(); ++i)
            order.aSort[i] = {columns[i].tag, columns[i].descending ? TABLE_SORT_DESCEND : TABLE_SORT_ASCEND};
        ASSERT_EQ(table.SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0), S_OK);
    }
    // FindRow from a place, either way, gives what going from row to row gives.
    void CheckFinding(DrawnValues& draw, IMAPITable& table, const std::vector<PlainRow>& shown,
                      SRestriction& wanted)
    {
        std::shared_ptr<const Restriction> restriction;
        ASSERT_EQ(Restriction::Make(&wanted, restriction), S_OK);
        const bool backward = draw.Chance(2);
        const std::size_t from = draw.Below(static_cast<unsigned>(shown.size()) + 1);
        std::size_t expected = SIZE_MAX;
        for (std::size_t i = 0; i < shown.size(); ++i) {
            const bool isAhead = backward ? i < from : i >= from;
            if (isAhead && restriction->Matches(BagLookup(shown[i].values)) &&
                (backward || expected == SIZE_MAX))
                expected = i;
        }
        ASSERT_EQ(table.SeekRow(BOOKMARK_BEGINNING, static_cast<LONG>(from), nullptr), S_OK);
        const HRESULT found = table.FindRow(&wanted, BOOKMARK_CURRENT, backward ? DIR_BACKWARD : 0);
        ASSERT_EQ(found, expected == SIZE_MAX ? MAPI_E_NOT_FOUND : S_OK);
        if (found == S_OK) {
            ULONG row = 0;
            ULONG numerator = 0;
            ULONG denominator = 0;
            ASSERT_EQ(table.QueryPosition(&row, &numerator, &denominator), S_OK);
            ASSERT_EQ(row, expected);
        }
    }

    TestMailbox mailbox;
    std::vector<BinaryValue> ids;
};

TEST_F(RandomQueryTest, TablesGiveTheRowsOfAPlainEvaluationInItsOrder)
{
    const char* const given = std::getenv("QUORVANE_SEED");
    DrawnValues draw(given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 1u);
    for (int i = 0; i < kQueriedMessages; ++i)
        AddOne(draw);
    const ComPtr<IMAPITable> all = OpenTable();
    const ComPtr<IMAPITable> followed = OpenTable();
    std::vector<PlainRow> rows;
    for (int query = 0; query < kRandomQueries; ++query) {
        SCOPED_TRACE(query);
        if (query % kChangesEvery == 0)
            rows = ReadAll(*all);
        RestrictionMaker maker(draw, rows);
        SRestriction wanted = maker.Make(3);
        const std::vector<SortColumn> sort = DrawSort(draw);
        std::shared_ptr<const Restriction> restriction;
        ASSERT_EQ(Restriction::Make(&wanted, restriction), S_OK);
        ASSERT_EQ(followed->Restrict(&wanted, 0), S_OK);
        ASSERT_NO_FATAL_FAILURE(Sort(*followed, sort));
        const std::vector<PlainRow> shown = ReadAll(*followed);
        ASSERT_EQ(IdsOf(shown), Evaluate(rows, restriction.get(), sort));
        SRestriction other = maker.Make(2);
        ASSERT_NO_FATAL_FAILURE(CheckFinding(draw, *followed, shown, other));
        if (query % kChangesEvery == kChangesEvery - 1) {
            // The table is there already, and follows.
            ASSERT_NO_FATAL_FAILURE(ChangeSome(draw));
            rows = ReadAll(*all);
            ASSERT_EQ(IdsOf(ReadAll(*followed)), Evaluate(rows, restriction.get(), sort));
        }
    }
}

}  // namespace
}  // namespace quorvane
