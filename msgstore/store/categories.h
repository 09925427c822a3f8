// msgstore/store/categories.h: the headings of a table whose rows are in categories.
//
// A heading stands above the rows that are equal in a sort column and in those before it. It is known among
// the table's rows by a number below zero, which stays its own for as long as the table is sorted so, whether
// there are such rows or not; and so does its being expanded.
#ifndef QUORVANE_MSGSTORE_STORE_CATEGORIES_H_
#define QUORVANE_MSGSTORE_STORE_CATEGORIES_H_

#include <map>
#include <span>

#include "msgstore/store/table_source.h"

namespace quorvane {

// No lock.
class Categories {
public:
    // columns   [in]  that make categories, the outermost first; at least one
    // expanded  [in]  how many of them are expanded to begin with
    Categories(std::vector<SortColumn> columns, std::size_t expanded)
        : columns_(std::move(columns)), expanded_(expanded)
    {}

    std::size_t Depth() const noexcept { return columns_.size(); }
    std::size_t Expanded() const noexcept { return expanded_; }

    // Puts headings among the rows, which are all of the table's in its order, and takes out those that stand
    // below a collapsed one. Forgets the rows of the headings that were there before.
    [[nodiscard]] HRESULT Arrange(RowReader& reader, std::vector<std::int64_t>& ids);

    // The row of a heading, with PR_INSTANCE_KEY, PR_ROW_TYPE, PR_DEPTH, PR_CONTENT_COUNT, PR_CONTENT_UNREAD
    // and the columns down to its own. Null: there is none now.
    const PropertyBag* Row(std::int64_t id) const noexcept;
    bool IsExpanded(std::int64_t id) const noexcept;
    void SetExpanded(std::int64_t id, bool expanded);

    // Which headings aren't as they were to begin with, and a row, as bytes for the same order of another
    // table; and back. 0: the row was none of those.
    Bytes SaveState(std::int64_t row) const;
    // MAPI_E_INVALID_PARAMETER: they are none of SaveState's. Nothing changed then.
    [[nodiscard]] HRESULT LoadState(std::span<const BYTE> state, std::int64_t& row);

private:
    struct Heading {
        Bytes path;  // the sort keys down to its own, each with its size (4 bytes) before it
        std::size_t level = 0;
        bool expanded = false;
        bool isThere = false;
        LONG count = 0;
        LONG unread = 0;
        PropertyBag row;
    };

    std::int64_t Know(const Bytes& path, std::size_t level);
    Heading& At(std::int64_t id) noexcept { return headings_[static_cast<std::size_t>(-id - 1)]; }
    const Heading* Find(std::int64_t id) const noexcept;
    std::vector<Bytes> PathsOf(const RowReader& reader) const;
    void Open(const RowReader& reader, std::int64_t id);
    void Finish();

    const std::vector<SortColumn> columns_;
    const std::size_t expanded_;
    std::vector<Heading> headings_;  // that of number -1 first
    std::map<Bytes, std::int64_t> numbers_;
};

// Reads the rows of a table with categories: its own and the headings. `categories` stays as it is meanwhile.
std::unique_ptr<RowReader> MakeCategorizedReader(std::unique_ptr<RowReader> reader,
                                                 const Categories& categories);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_CATEGORIES_H_
