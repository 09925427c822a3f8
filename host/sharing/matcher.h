// host/sharing/matcher.h: finds the messages that belong to items of a package and have no row.
//
// An item may reach the store without its row: a kill between the two, or a database that failed. Its message
// shares the search key with the one in the package, as copies do, and by it the item gets its row. So it
// isn't made a second time when the package is applied once more.
#ifndef QUORVANE_HOST_SHARING_MATCHER_H_
#define QUORVANE_HOST_SHARING_MATCHER_H_

#include <map>
#include <string>
#include <vector>

#include "host/sharing/addin.h"

namespace quorvane::host {

// For the run's thread alone, while the engine works no package off. Methods throw a HostError.
class Matcher {
public:
    Matcher(const Addin::Parts& parts, const EngineSession& engine) noexcept : parts_(parts), engine_(engine)
    {}

    // For a package that is about to be handed over. Of a damaged one, what stands before the damage is
    // matched.
    void MatchPackage(const std::string& path);
    // The same for every package that the engine is about to resume.
    void MatchUnfinished();

private:
    bool WasBeingApplied(const std::string& id);

    // Items without a row, by search key: their sharing IDs.
    using Wanted = std::map<std::string, std::string>;

    // By the folder's sharing ID.
    std::map<std::string, Wanted> WantedOf(const std::string& path);
    void MatchFolder(const std::string& folderId, Wanted wanted);

    Addin::Parts parts_;
    const EngineSession& engine_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_MATCHER_H_
