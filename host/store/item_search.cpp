#include "host/store/item_search.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/base/errors.h"
#include "host/store/item_marks.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr LONG kFoundAtOnce = 1000;

[[noreturn]] void Misunderstand(const std::string& word, const char* why)
{
    throw HostError("can't search for '" + word + "': " + why, ExitCode::kUsage);
}

// A period's first moment and the one behind it, as FILETIMEs.
struct Period {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

std::optional<WORD> NumberOf(std::string_view text, std::size_t digits)
{
    WORD number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.size() != digits || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::optional<std::uint64_t> TimeOf(const SYSTEMTIME& parts)
{
    FILETIME time{};
    if (!SystemTimeToFileTime(&parts, &time))
        return std::nullopt;
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

// "2026", "2026-11" or "2026-11-23".
std::optional<Period> PeriodOf(std::string_view text)
{
    constexpr std::uint64_t kDay = std::uint64_t{24} * 60 * 60 * 10'000'000;
    const auto year = NumberOf(text.substr(0, 4), 4);
    const bool hasMonth = text.size() > 4;
    const bool hasDay = text.size() > 7;
    const auto month = hasMonth ? NumberOf(text.substr(5, 2), 2) : std::optional<WORD>(1);
    const auto day = hasDay ? NumberOf(text.substr(8), 2) : std::optional<WORD>(1);
    if (!year || !month || !day || (hasMonth && text[4] != '-') || (hasDay && text[7] != '-'))
        return std::nullopt;
    SYSTEMTIME parts{};
    parts.wYear = *year;
    parts.wMonth = *month;
    parts.wDay = *day;
    const auto begin = TimeOf(parts);
    if (!begin)
        return std::nullopt;
    if (hasDay)
        return Period{*begin, *begin + kDay};
    parts.wYear = static_cast<WORD>(*year + (!hasMonth || *month == 12 ? 1 : 0));
    parts.wMonth = static_cast<WORD>(!hasMonth || *month == 12 ? 1 : *month + 1);
    const auto end = TimeOf(parts);
    return end ? std::optional<Period>(Period{*begin, *end}) : std::nullopt;
}

SRestriction OfBits(ULONG tag, ULONG bits, bool areSet)
{
    SRestriction restriction{};
    restriction.rt = RES_BITMASK;
    restriction.res.resBitMask.relBMR = areSet ? BMR_NEZ : BMR_EQZ;
    restriction.res.resBitMask.ulPropTag = tag;
    restriction.res.resBitMask.ulMask = bits;
    return restriction;
}

SRestriction OfState(const std::string& word, std::string_view state)
{
    if (state == "read" || state == "unread")
        return OfBits(PR_MESSAGE_FLAGS, MSGFLAG_READ, state == "read");
    for (const auto& [name, mark] : {std::pair<std::string_view, Marks>{"flagged", kMarkFlagged},
                                     {"answered", kMarkAnswered},
                                     {"forwarded", kMarkForwarded},
                                     {"draft", kMarkDraft},
                                     {"for-deletion", kMarkForDeletion}})
        if (state == name)
            return OfBits(quorvane::kPrMessageStatus, StatusOf(mark), true);
    Misunderstand(word,
                  "'is:' is followed by read, unread, flagged, answered, forwarded, draft or for-deletion");
}

// What a table is sorted by; PR_NULL: nothing.
ULONG ColumnOf(ItemOrder order)
{
    switch (order) {
        case ItemOrder::kDate:
            return PR_CLIENT_SUBMIT_TIME;
        case ItemOrder::kSender:
            return PR_SENDER_NAME_W;
        case ItemOrder::kSubject:
            return PR_SUBJECT_W;
        case ItemOrder::kSize:
            return PR_MESSAGE_SIZE;
        default:
            return PR_NULL;
    }
}

}  // namespace

ItemSearch::ItemSearch(const std::vector<std::string>& words)
{
    for (const std::string& word : words)
        all_.push_back(OfWord(word));
    whole_.rt = RES_AND;
    whole_.res.resAnd.cRes = static_cast<ULONG>(all_.size());
    whole_.res.resAnd.lpRes = all_.data();
}

SRestriction* ItemSearch::Restriction() noexcept
{
    return all_.empty() ? nullptr : &whole_;
}

SRestriction ItemSearch::OfWord(const std::string& word)
{
    const std::string_view text = word;
    const std::size_t colon = text.find(':');
    const std::string_view key = text.substr(0, colon);
    const std::string_view value = colon == std::string_view::npos ? text : text.substr(colon + 1);
    if (value.empty())
        Misunderstand(word, "nothing follows");
    if (colon == std::string_view::npos)
        return AnyOf({PR_SUBJECT_W, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W}, value);
    if (key == "from")
        return AnyOf({PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W}, value);
    if (key == "to")
        return AnyOf({PR_DISPLAY_TO_W, PR_DISPLAY_CC_W, PR_DISPLAY_BCC_W}, value);
    if (key == "subject")
        return OfText(PR_SUBJECT_W, value);
    if (key == "body")
        return OfText(PR_BODY_W, value);
    if (key == "date")
        return OfDates(word, value);
    if (key == "is")
        return OfState(word, value);
    if (key == "has" && value == "attachment")
        return OfBits(PR_MESSAGE_FLAGS, MSGFLAG_HASATTACH, true);
    Misunderstand(word,
                  "words begin with from:, to:, subject:, body:, date:, is: or has:attachment, or have no "
                  "colon");
}

SRestriction ItemSearch::OfText(ULONG tag, std::string_view text)
{
    SPropValue& value = values_.emplace_back();
    value.ulPropTag = tag;
    value.Value.lpszW = texts_.emplace_back(FromUtf8(text)).data();
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent.ulFuzzyLevel = FL_SUBSTRING | FL_IGNORECASE;
    restriction.res.resContent.ulPropTag = tag;
    restriction.res.resContent.lpProp = &value;
    return restriction;
}

SRestriction ItemSearch::AnyOf(std::initializer_list<ULONG> tags, std::string_view text)
{
    Pair& parts = pairs_.emplace_back();
    for (const ULONG tag : tags)
        parts.push_back(OfText(tag, text));
    SRestriction restriction{};
    restriction.rt = RES_OR;
    restriction.res.resOr.cRes = static_cast<ULONG>(parts.size());
    restriction.res.resOr.lpRes = parts.data();
    return restriction;
}

SRestriction ItemSearch::OfTime(ULONG relation, std::uint64_t time)
{
    SPropValue& value = values_.emplace_back();
    value.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    value.Value.ft = {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty.relop = relation;
    restriction.res.resProperty.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    restriction.res.resProperty.lpProp = &value;
    return restriction;
}

SRestriction ItemSearch::OfDates(const std::string& word, std::string_view dates)
{
    const std::size_t dots = dates.find("..");
    const bool isRange = dots != std::string_view::npos;
    const std::string_view from = dates.substr(0, dots);
    const std::string_view to = isRange ? dates.substr(dots + 2) : from;
    const auto first = PeriodOf(from);
    const auto last = PeriodOf(to);
    if ((!first && !from.empty()) || (!last && !to.empty()) || (!first && !last))
        Misunderstand(word, "a date is 2026, 2026-11 or 2026-11-23, and two of them have '..' between them");
    Pair& parts = pairs_.emplace_back();
    if (first)
        parts.push_back(OfTime(RELOP_GE, first->begin));
    if (last)
        parts.push_back(OfTime(RELOP_LT, last->end));
    SRestriction restriction{};
    restriction.rt = RES_AND;
    restriction.res.resAnd.cRes = static_cast<ULONG>(parts.size());
    restriction.res.resAnd.lpRes = parts.data();
    return restriction;
}

std::vector<std::string> FindItems(IMAPIFolder& folder, ItemSearch& search, ItemOrder order, bool isReversed)
{
    constexpr const char* kWhat = "search the items of";
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(MAPI_UNICODE, table.Put()), kWhat, "the folder");
    SPropTagArray column = {1, {PR_ENTRYID}};
    Check(table->SetColumns(&column, 0), kWhat, "the folder");
    if (SRestriction* const restriction = search.Restriction())
        Check(table->Restrict(restriction, 0), kWhat, "the folder");
    if (const ULONG tag = ColumnOf(order); tag != PR_NULL) {
        SSortOrderSet sort = {
            1, 0, 0, {{tag, static_cast<ULONG>(isReversed ? TABLE_SORT_DESCEND : TABLE_SORT_ASCEND)}}};
        Check(table->SortTable(&sort, 0), kWhat, "the folder");
    }
    std::vector<std::string> found;
    for (;;) {
        Rows rows;
        Check(table->QueryRows(kFoundAtOnce, 0, rows.Put()), kWhat, "the folder");
        for (ULONG i = 0; i < rows.Count(); ++i)
            found.push_back(HexOf(rows[i], PR_ENTRYID));
        if (rows.Count() == 0)
            break;
    }
    if (isReversed && order == ItemOrder::kFolder)
        std::reverse(found.begin(), found.end());
    return found;
}

}  // namespace quorvane::host
