// host/store/item_search.h: items of a folder found by words, as a user writes them.
//
//     from:TEXT  to:TEXT  subject:TEXT  body:TEXT  TEXT (subject or sender)
//     date:PERIOD  date:FROM..TO (either may be left out)  a PERIOD: 2026, 2026-11 or 2026-11-23, in UTC
//     is:read  is:unread  is:flagged  is:answered  is:forwarded  is:draft  is:for-deletion  has:attachment
//
// An item is found when all words hold. Texts are found anywhere, in either case.
#ifndef QUORVANE_HOST_STORE_ITEM_SEARCH_H_
#define QUORVANE_HOST_STORE_ITEM_SEARCH_H_

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// The words as a question to the message store. Isn't copied.
class ItemSearch {
public:
    // Throws a HostError (kUsage) for a word that can't be understood.
    explicit ItemSearch(const std::vector<std::string>& words);
    ItemSearch(const ItemSearch&) = delete;
    ItemSearch& operator=(const ItemSearch&) = delete;

    // What IMAPITable::Restrict takes, valid as long as this; null when there are no words.
    SRestriction* Restriction() noexcept;

private:
    using Pair = std::vector<SRestriction>;

    SRestriction OfWord(const std::string& word);
    SRestriction OfText(ULONG tag, std::string_view text);
    SRestriction AnyOf(std::initializer_list<ULONG> tags, std::string_view text);
    SRestriction OfDates(const std::string& word, std::string_view dates);
    SRestriction OfTime(ULONG relation, std::uint64_t time);

    // What the restrictions point to stays where it is.
    std::deque<OleString> texts_;
    std::deque<SPropValue> values_;
    std::deque<Pair> pairs_;
    std::vector<SRestriction> all_;
    SRestriction whole_{};
};

// By what items are ordered; kFolder: as the folder has them.
enum class ItemOrder { kFolder, kDate, kSender, kSubject, kSize };

// The entry identifiers, in hexadecimal text, of the items that are found. Throws a HostError.
std::vector<std::string> FindItems(IMAPIFolder& folder, ItemSearch& search, ItemOrder order, bool isReversed);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_ITEM_SEARCH_H_
