// host/sharing/outbox.h: packages on their way from the engine to the exchange.
//
// A package is taken from the engine when it has been quiet for a moment, or is as large as one may be. From
// then on it is the program's: it is noted before the engine forgets it, looked through, gets its number and
// its receivers, and goes when it lies in the exchange, sealed. A kill at any point leads to one more of the
// same number and content, never to none.
#ifndef QUORVANE_HOST_SHARING_OUTBOX_H_
#define QUORVANE_HOST_SHARING_OUTBOX_H_

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/sharing/addin.h"
#include "host/sharing/commit_group.h"
#include "host/sharing/engine.h"
#include "host/sharing/package_check.h"
#include "host/sharing/transport.h"

namespace quorvane::host {

// For the run's thread alone, but for MakeRoom. Methods throw a HostError.
class Outbox final : public PackageRoom {
public:
    static constexpr std::uint64_t kPackageSize = std::uint64_t{64} << 20;

    // report: gets one line for the user about what can't be sent. packageSize: how many bytes a package
    // holds; an item that is larger has one of its own.
    Outbox(const Addin::Parts& parts, const EngineSession& engine,
           std::function<void(const std::string&)> report, std::uint64_t packageSize = kPackageSize)
        : parts_(parts),
          engine_(engine),
          records_(parts.records),
          report_(std::move(report)),
          packageSize_(packageSize)
    {}

    // What is sent is on the disk before its package gets a number. Without it each commit has waited for it.
    void SetGroup(CommitGroup* group) noexcept { group_ = group; }

    // Takes up what a killed run had noted: the engine may still list it. Once, before the engine's folders
    // are added.
    void Resume();

    // Any thread.
    void MakeRoom(std::uint64_t size) override;

    // Takes every package that is ready. Those for one member come first, so that he knows a folder before
    // its changes.
    void TakeReady(bool evenIfFresh);

    // Takes the package for these recipients, ready or not, if there is one.
    void Take(const std::string& recipients);

    // Looks through what was taken, and fixes who gets it, in the order of taking. What isn't fit to be sent
    // is taken out and noted.
    void Plan();

    // Takes what members are to be told of folders.
    void TakeNotes(SharedFolders& folders);

    // Lays what was taken into the exchange. Throws, an exchange::Error too, when that can't be used; what
    // wasn't laid there is kept for the next call.
    void Deliver(Transport& transport);

    // Notes an item that isn't sent, and says so.
    void NoteUnsent(const std::string& id, const std::string& folderId, const std::string& reason);

    // Whether anything waits: in the engine or taken.
    bool HasWork();
    // The same for packages whose receivers aren't fixed yet.
    bool HasUnplanned();
    bool IsUnplanned(const std::string& recipients);

private:
    struct Listed {
        std::string recipients;
        std::string path;
    };
    std::vector<Listed> ListEngine() const;
    bool IsReady(const std::string& path);
    void Take(const Listed& package);
    void Forget(const std::string& recipients) const;
    void RemoveStrayNotes() const;
    bool Plan(const OutgoingPackage& package);
    void Fix(const OutgoingPackage& package, const PackagePlan& plan);
    void Lay(const OutgoingPackage& package, Transport& transport);
    bool LookThrough(const OutgoingPackage& package, Package& content);
    void PutAside(const OutgoingPackage& package);
    std::string FolderOf(const OutgoingPackage& package);
    std::vector<std::string> ReceiversOf(const OutgoingPackage& package);
    std::vector<exchange::Receiver> DevicesFor(const OutgoingPackage& package, Transport& transport);

    Addin::Parts parts_;
    const EngineSession& engine_;
    Records& records_;
    std::function<void(const std::string&)> report_;
    const std::uint64_t packageSize_;
    CommitGroup* group_ = nullptr;
    std::mutex taking_;  // from the engine's list; guards what follows
    std::map<std::string, std::chrono::steady_clock::time_point>
        firstSeen_;  // packages that were still filling
    std::chrono::steady_clock::time_point lastTaken_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_OUTBOX_H_
