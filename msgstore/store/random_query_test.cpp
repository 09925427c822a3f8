// Random restrictions and sorts: a table gives the rows that a plain evaluation of the same properties in
// memory gives, in the same order. A run with one seed is told by QUORVANE_SEED; without it the seeds are
// always the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <random>

#include "msgstore/message/recipients.h"
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
// Of the sizes of attachments that are drawn.
constexpr LONG kMiddleSize = 20000;
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
    std::vector<PropertyBag> recipients;
    std::vector<PropertyBag> attachments;
};

class PlainLookup final : public PropertyLookup {
public:
    explicit PlainLookup(const PlainRow& row) noexcept : row_(row) {}
    const PropertyValue* Find(ULONG tag) const override { return row_.values.Find(tag); }
    const std::vector<PropertyBag>* SubRows(ULONG tag) const override
    {
        return tag == PR_MESSAGE_RECIPIENTS ? &row_.recipients : &row_.attachments;
    }

private:
    const PlainRow& row_;
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
        switch (depth > 0 ? draw_.Below(9) : 3 + draw_.Below(5)) {
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
            case 7:
                made.rt = RES_EXIST;
                made.res.resExist.ulPropTag = Tag();
                break;
            default: {
                made.rt = RES_SUBRESTRICTION;
                const bool ofRecipients = draw_.Chance(2);
                made.res.resSub.ulSubObject = ofRecipients ? PR_MESSAGE_RECIPIENTS : PR_MESSAGE_ATTACHMENTS;
                made.res.resSub.lpRes = OfSubRow(ofRecipients);
                break;
            }
        }
        return made;
    }

private:
    // A number that about half of the sub rows are under, or a text that some have.
    SRestriction* OfSubRow(bool ofRecipients)
    {
        SRestriction& made = parts_.emplace_back(1).front();
        SPropValue& value = values_.emplace_back();
        made.rt = RES_PROPERTY;
        made.res.resProperty = {draw_.Below(6), 0, &value};
        if (draw_.Chance(2)) {
            value.ulPropTag = ofRecipients ? PR_RECIPIENT_TYPE : PR_ATTACH_SIZE;
            value.Value.l = ofRecipients ? 1 + static_cast<LONG>(draw_.Below(3)) : kMiddleSize;
        } else {
            value.ulPropTag = ofRecipients ? PR_DISPLAY_NAME_W : PR_ATTACH_FILENAME_W;
            value.Value.lpszW = const_cast<OLECHAR*>(texts_.emplace_back(draw_.Text()).c_str());
        }
        made.res.resProperty.ulPropTag = value.ulPropTag;
        return &made;
    }

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
        if (draw.Chance(3))
            SetRecipients(draw, message);
        if (draw.Chance(4))
            AddAttachment(draw, message);
        SetOthers(draw, message);
    }
    static void SetRecipients(DrawnValues& draw, IMessage& message)
    {
        std::vector<PropertyBag> rows(draw.Below(3));
        for (PropertyBag& row : rows) {
            row.Put(PropertyValue::Long(PR_RECIPIENT_TYPE, 1 + static_cast<LONG>(draw.Below(3))));
            row.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, draw.Text()));
        }
        AddressList list;
        ASSERT_EQ(list.Make(rows), S_OK);
        ASSERT_EQ(message.ModifyRecipients(0, list.Get()), S_OK);
    }
    // Half of them have their data in rows of their own.
    static void AddAttachment(DrawnValues& draw, IMessage& message)
    {
        ComPtr<IAttach> attachment;
        ULONG number = 0;
        ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        EXPECT_EQ(SetText(*attachment, PR_ATTACH_FILENAME_W, draw.Text()), S_OK);
        EXPECT_EQ(
            SetBinary(*attachment, PR_ATTACH_DATA_BIN, BinaryValue(draw.Below(4) * std::size_t{kMiddleSize})),
            S_OK);
        EXPECT_EQ(attachment->SaveChanges(0), S_OK);
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
    static std::vector<PropertyBag> BagsOf(IMAPITable& table)
    {
        std::vector<PropertyBag> bags;
        LPSPropTagArray columns = nullptr;
        EXPECT_EQ(table.QueryColumns(TBL_ALL_COLUMNS, &columns), S_OK);
        EXPECT_EQ(table.SetColumns(columns, 0), S_OK);
        MAPIFreeBuffer(columns);
        RowSet rows;
        EXPECT_EQ(table.QueryRows(1000, 0, rows.Put()), S_OK);
        for (const SRow& row : rows) {
            PropertyBag& bag = bags.emplace_back();
            for (ULONG i = 0; i < row.cValues; ++i) {
                PropertyValue value;
                if (SUCCEEDED(FromSPropValue(row.lpProps[i], value)))
                    bag.Put(std::move(value));
            }
        }
        return bags;
    }
    void ReadSubRows(std::vector<PlainRow>& rows)
    {
        for (PlainRow& row : rows) {
            const ComPtr<IMessage> message = mailbox.OpenMessage(row.id, 0);
            ComPtr<IMAPITable> table;
            ASSERT_EQ(message->GetRecipientTable(MAPI_UNICODE, table.Put()), S_OK);
            row.recipients = BagsOf(*table);
            table.Reset();
            ASSERT_EQ(message->GetAttachmentTable(MAPI_UNICODE, table.Put()), S_OK);
            row.attachments = BagsOf(*table);
        }
    }
    static void TakeSubRows(const std::vector<PlainRow>& known, PlainRow& row)
    {
        const auto same = std::find_if(known.begin(), known.end(),
                                       [&](const PlainRow& other) { return other.number == row.number; });
        ASSERT_NE(same, known.end());
        row.recipients = same->recipients;
        row.attachments = same->attachments;
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
            if (!restriction || restriction->Matches(PlainLookup(row)))
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
            if (isAhead && restriction->Matches(PlainLookup(shown[i])) && (backward || expected == SIZE_MAX))
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
        if (query % kChangesEvery == 0) {
            rows = ReadAll(*all);
            ASSERT_NO_FATAL_FAILURE(ReadSubRows(rows));
        }
        RestrictionMaker maker(draw, rows);
        SRestriction wanted = maker.Make(3);
        const std::vector<SortColumn> sort = DrawSort(draw);
        std::shared_ptr<const Restriction> restriction;
        ASSERT_EQ(Restriction::Make(&wanted, restriction), S_OK);
        ASSERT_EQ(followed->Restrict(&wanted, 0), S_OK);
        ASSERT_NO_FATAL_FAILURE(Sort(*followed, sort));
        std::vector<PlainRow> shown = ReadAll(*followed);
        for (PlainRow& row : shown)
            TakeSubRows(rows, row);
        ASSERT_EQ(IdsOf(shown), Evaluate(rows, restriction.get(), sort));
        SRestriction other = maker.Make(2);
        ASSERT_NO_FATAL_FAILURE(CheckFinding(draw, *followed, shown, other));
        if (query % kChangesEvery == kChangesEvery - 1) {
            // The table is there already, and follows.
            ASSERT_NO_FATAL_FAILURE(ChangeSome(draw));
            rows = ReadAll(*all);
            ASSERT_NO_FATAL_FAILURE(ReadSubRows(rows));
            ASSERT_EQ(IdsOf(ReadAll(*followed)), Evaluate(rows, restriction.get(), sort));
        }
    }
}

}  // namespace
}  // namespace quorvane
