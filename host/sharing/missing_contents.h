// host/sharing/missing_contents.h: what becomes of an item that shows what isn't here.
//
// An edit that was beaten is shown again when what beat it is deleted by somebody who hadn't seen that edit.
// Mostly somebody still has it and sends it. Where nobody has it in the folder any more,
//
// - and the conflict's copy is here, or was deleted: the text stands there, or whoever deleted it had seen
//   it, and the item goes as the deletion wanted;
// - and it lies in this mailbox's trash, it is put back from there, as the item that it is, and everybody
//   gets it.
//
// Whoever can does so by itself; that several do, or that one is killed meanwhile, comes to the same.
#ifndef QUORVANE_HOST_SHARING_MISSING_CONTENTS_H_
#define QUORVANE_HOST_SHARING_MISSING_CONTENTS_H_

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "host/sharing/sender.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError when the records fail.
class MissingContents {
public:
    MissingContents(const Addin::Parts& parts, Addin& addin, const EngineSession& engine, Sender& sender,
                    std::function<void(const std::string&)> report)
        : parts_(parts),
          versions_(addin.Versions()),
          engine_(engine),
          sender_(sender),
          report_(std::move(report))
    {}

    // Whether anything happened since they were looked for.
    bool HasWork() const noexcept { return looked_ != parts_.statistics.lastActivity; }
    // Looks for all of them. The engine must work no package off; it may be given one.
    void Look();

private:
    exchange::ContentDigest DigestInStore(const Share& share, IMessage& message,
                                          const std::string& shown) const;
    bool IsInCopy(const ItemRecord& record);
    void Drop(const Share& share, const ItemRecord& record);
    bool PackFromTrash(const Share& share, ItemRecord record);
    void HandOver();

    Addin::Parts parts_;
    ItemVersions& versions_;
    const EngineSession& engine_;
    Sender& sender_;
    std::function<void(const std::string&)> report_;
    std::chrono::steady_clock::rep looked_ = 0;
    std::set<std::string> failed_;  // items that were told of
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_MISSING_CONTENTS_H_
