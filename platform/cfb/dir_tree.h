// platform/cfb/dir_tree.h: finding the elements of a storage.
#ifndef QUORVANE_PLATFORM_CFB_DIR_TREE_H_
#define QUORVANE_PLATFORM_CFB_DIR_TREE_H_

#include <bit>
#include <vector>

#include "platform/cfb/tree_edit.h"

namespace quorvane::cfb {

// Searches the tree of a storage. Only the way down is read, so that the cost grows with the tree's depth;
// a tree that no program with care wrote ends with kTreeTooDeep or STG_E_DOCFILECORRUPT.
// One call at a time. Throws std::bad_alloc.
class DirTree {
public:
    explicit DirTree(Directory& directory) noexcept : directory_(directory) {}

    // STG_E_FILENOTFOUND. *entry: see Directory::Peek.
    [[nodiscard]] HRESULT Find(EntryId storage, const ElementName& name, EntryId* id, const DirEntry** entry);
    // The first element in the order of names, or with `after` the first one behind that name, which needn't
    // be there any more. STG_E_NOMOREFILES.
    [[nodiscard]] HRESULT Next(EntryId storage, const ElementName* after, EntryId* id, DirEntry* entry);
    // Gives back the memory that a survey took.
    void DropMarks() noexcept
    {
        seen_ = {};
        passed_ = {};
        survey_ = 0;
    }

    // What a walk through a whole tree shows.
    struct Shape {
        std::vector<EntryId> ids;  // all sound entries, each one once, in the tree's order
        bool ordered = true;       // which is that of the names
        bool sound = true;         // no link led to an entry that isn't sound, or for the second time
        bool deep = false;         // deeper than a balanced tree of that many
    };

    [[nodiscard]] HRESULT Survey(EntryId storage, Shape* shape);
    // A look at the ways to the first and to the last element, no more: *deep when one of them is too long
    // for a balanced tree, or leads nowhere.
    [[nodiscard]] HRESULT Probe(EntryId storage, bool* deep);

    // Writes the tree anew, from `ids` in the order of their names: copies of all entries, then one link,
    // then the old entries are freed. STG_E_DOCFILECORRUPT: two names are the same.
    [[nodiscard]] HRESULT Rebuild(OrderedFile& file, EntryId storage, const std::vector<EntryId>& ids,
                                  std::vector<TreeEdit::Move>* moves);

    // Sorts entries by name. STG_E_DOCFILECORRUPT: there are more than kMostSorted.
    [[nodiscard]] HRESULT Sort(std::vector<EntryId>* ids);

private:
    static constexpr std::size_t kMaxDepth = 96;
    static constexpr std::size_t kMostSorted = 65536;

    // No red-black tree of `count` nodes is deeper; a kill or two may have left it a little deeper than it
    // should be.
    static std::size_t MostDepth(std::size_t count) noexcept
    {
        return 2 * static_cast<std::size_t>(std::bit_width(count + 1)) + 2;
    }

    // See Directory::Peek.
    [[nodiscard]] HRESULT PeekElement(EntryId id, const DirEntry** entry);
    [[nodiscard]] HRESULT BeginSurvey();
    bool SeenBefore(EntryId id) noexcept;

    Directory& directory_;
    // An entry that a survey will come back to.
    struct Passed {
        EntryId id;
        std::uint32_t depth;
    };
    std::vector<Passed> passed_;
    std::vector<std::uint32_t> seen_;  // for each entry the last survey that met it
    std::uint32_t survey_ = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DIR_TREE_H_
