// host/mirror/maildir_tree.h: where in a Maildir the folders below a folder have their places.
//
// Two layouts are in use. Nested: a folder is a Maildir in the Maildir of the folder that it lies in,
// "Mail/Plans/2026". Maildir++: all of them lie in the one Maildir, under their whole path behind a dot,
// "Mail/.Plans.2026", in the modified UTF-7 of IMAP.
#ifndef QUORVANE_HOST_MIRROR_MAILDIR_TREE_H_
#define QUORVANE_HOST_MIRROR_MAILDIR_TREE_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::host {

enum class TreeLayout { kNested, kMaildirPlusPlus };

// The Maildir of a folder by its path from `root`'s folder on, with '/' between names. Throws a HostError for
// one that has no place: a name that is another thing there ("cur"), or that the layout can't tell.
std::filesystem::path PlaceInTree(const std::filesystem::path& root, const std::string& folder,
                                  TreeLayout layout);

// The paths of folders that have a Maildir in a tree, those on the way to them as well, parents before
// children; none where there is no directory yet. Links aren't followed. What no folder could be named by is
// passed over; throws a HostError where a directory can't be read.
std::vector<std::string> FoldersInTree(const std::filesystem::path& root, TreeLayout layout);

// A name in the modified UTF-7 of IMAP, and back; nothing for a text that is no such name.
std::string ToModifiedUtf7(std::string_view name);
std::optional<std::string> FromModifiedUtf7(std::string_view text);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MAILDIR_TREE_H_
