// host/sharing/conflict_copies.h: what was made here of an item, and was beaten by somebody else's change
// that hadn't seen it, becomes an item of its own in the same folder, so that everybody has both. It carries
// the category "Conflict" and says who made it and when.
#ifndef QUORVANE_HOST_SHARING_CONFLICT_COPIES_H_
#define QUORVANE_HOST_SHARING_CONFLICT_COPIES_H_

#include <functional>
#include <set>
#include <string>

#include "host/sharing/sender.h"

namespace quorvane::host {

inline constexpr OLECHAR kConflictCategory[] = OLESTR("Conflict");

// For the run's thread alone, while the engine works no package off.
class ConflictCopies {
public:
    ConflictCopies(const Addin::Parts& parts, Addin& addin, const EngineSession& engine, Sender& sender,
                   std::function<void(const std::string&)> report)
        : parts_(parts),
          versions_(addin.Versions()),
          engine_(engine),
          sender_(sender),
          report_(std::move(report))
    {}

    bool HasWork() { return !versions_.Removed().CopiesDue().empty(); }
    // Makes those that are due. What can't be made now is tried again; the trash holds it. Throws a HostError
    // when the records fail.
    void Make();

private:
    void Make(const TrashEntry& entry);
    std::string MakeMessage(const TrashEntry& entry, const Share& share);

    Addin::Parts parts_;
    ItemVersions& versions_;
    const EngineSession& engine_;
    Sender& sender_;
    std::function<void(const std::string&)> report_;
    std::set<std::int64_t> failed_;  // told of
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_CONFLICT_COPIES_H_
