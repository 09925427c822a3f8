#include "host/inbox.h"

#include <system_error>

#include "host/announcement.h"
#include "host/files.h"
#include "host/path_text.h"

namespace quorvane::host {

namespace {

// How often a package is given to the engine before it is put aside.
constexpr int kTries = 2;

}  // namespace

Inbox::Inbox(const Addin::Parts& parts, const EngineSession& engine, Matcher& matcher,
             std::function<void(const std::string&)> report)
    : mailbox_(parts.mailbox),
      engine_(engine),
      records_(parts.records),
      state_(parts.state),
      applying_(parts.applying),
      statistics_(parts.statistics),
      matcher_(matcher),
      report_(std::move(report))
{}

bool Inbox::IsBusy()
{
    if (state_.IsReceiving()) {
        statistics_.Touch();
        return true;
    }
    applying_.End();  // of the last item, should it have failed
    return false;
}

// Drops from the exchange what was received before; true for a package that is still to be taken.
bool Inbox::IsNext(const IncomingPackage& package, const Exchange& exchange)
{
    if (package.sequence > records_.LastReceived(package.sender))
        return true;
    exchange.Remove(package);
    return false;
}

std::filesystem::path Inbox::PathFor(const IncomingPackage& package) const
{
    return mailbox_.InboxPath() / PathOf(package.sender + "-" + package.path.filename().string());
}

void Inbox::CopyFromExchange(const IncomingPackage& package) const
{
    std::filesystem::path aside = PathFor(package);
    aside += ".part";
    CopyDurably(package.path, aside, PathFor(package));
}

void Inbox::Done(const IncomingPackage& package, const Exchange& exchange)
{
    records_.SetLastReceived(package.sender, package.sequence);
    exchange.Remove(package);
    statistics_.Touch();
}

bool Inbox::TakeNext(const Exchange& exchange)
{
    if (IsBusy() || !FinishCurrent(exchange))
        return false;
    std::set<std::string> held;
    for (const IncomingPackage& package : exchange.Incoming()) {
        if (held.contains(package.sender) || !IsNext(package, exchange))
            continue;
        if (Take(package, exchange))
            return true;
        held.insert(package.sender);
    }
    held_ = held;
    return false;
}

bool Inbox::HasWork(const Exchange& exchange)
{
    if (current_ || IsBusy())
        return true;
    for (const IncomingPackage& package : exchange.Incoming())
        if (!held_.contains(package.sender))
            return true;
    return false;
}

// Whether an item of a package that the engine is done with has reached the store, or was left aside on
// purpose.
bool Inbox::IsApplied(const PackageRecord& item, const std::string& member)
{
    const auto sent = ParseVersion(item.customInfo);
    const ItemVersion version = sent ? *sent : ItemVersion{0, member};
    const auto record = records_.FindItem(item.id);
    if (!item.hasMessage)
        return !state_.RowOfId(item.id) || (record && version < record->version) || state_.WasKept(item.id);
    return (record && (version < record->version || (version == record->version && record->modified != 0))) ||
           state_.WasKept(item.id);
}

std::size_t Inbox::CountMissing(const IncomingPackage& package)
{
    const ComPtr<IStorage> root = OpenCompoundFile(package.path);
    std::size_t missing = 0;
    const Package content = ReadPackage(*root, package.path.string(), [](const PackageRecord&, IStorage&) {});
    std::set<std::string> folders;
    for (const PackageRecord& item : content.items) {
        missing += IsApplied(item, package.member) ? 0 : 1;
        if (folders.insert(item.folderId).second)
            records_.NoteHeardFrom(item.folderId, package.member);
    }
    return missing;
}

// The engine is done with the current package. What it couldn't apply is tried once more, out of the
// exchange's copy; then the package is put aside. False when the package is with the engine again.
bool Inbox::FinishCurrent(const Exchange& exchange)
{
    if (!current_)
        return true;
    const IncomingPackage package = *current_;
    const std::size_t missing = CountMissing(package);
    if (missing > 0) {
        CopyFromExchange(package);
        // A message that was made and has no row would be made a second time, or pass for one made here.
        matcher_.MatchPackage(PathFor(package).string());
        if (++tries_ < kTries) {
            Process(package);
            return false;
        }
        Reject(package, PathFor(package), std::to_string(missing) + " of its items could not be applied");
    }
    Done(package, exchange);
    current_.reset();
    tries_ = 0;
    return true;
}

bool Inbox::Take(const IncomingPackage& package, const Exchange& exchange)
{
    const std::filesystem::path path = PathFor(package);
    // An earlier run may have handed it over, and the engine resumed it.
    if (!state_.IsUnfinished(path.string())) {
        CopyFromExchange(package);
        std::string reason;
        const Verdict verdict = Judge(path, reason);
        if (verdict == Verdict::kHold)
            return false;
        if (verdict == Verdict::kReject) {
            Reject(package, path, reason);
            Done(package, exchange);
            return true;
        }
        Process(package);
        ++statistics_.packagesReceived;
    }
    current_ = package;
    return true;
}

Inbox::Verdict Inbox::Judge(const std::filesystem::path& path, std::string& reason)
{
    try {
        const ComPtr<IStorage> root = OpenCompoundFile(path);
        if (!IsPackage(*root)) {
            reason = "it is a compound file, but no package";
            return Verdict::kReject;
        }
        const Package package = ReadPackage(*root, path.string(), [](const PackageRecord&, IStorage&) {});
        std::set<std::string> announced;
        for (const PackageRecord& folder : package.folders)
            announced.insert(folder.id);
        for (const PackageRecord& item : package.items)
            if (!announced.contains(item.folderId) && !records_.FindShare(item.folderId))
                return Verdict::kHold;
        return Verdict::kUse;
    } catch (const HostError& error) {
        reason = error.what();
        return Verdict::kReject;
    }
}

void Inbox::Process(const IncomingPackage& package)
{
    const std::filesystem::path path = PathFor(package);
    Check(engine_.Session().ProcessStorageFile(Bstr(OleTextOf(path)).Get(), BstrOf(package.member).Get()),
          "hand over the package", path.string());
    statistics_.Touch();
}

void Inbox::Reject(const IncomingPackage& package, const std::filesystem::path& path,
                   const std::string& reason)
{
    const std::filesystem::path place = mailbox_.Directory() / "rejected";
    MakeDirectory(place);
    std::error_code error;
    std::filesystem::rename(path, place / path.filename(), error);
    if (error)
        Fail("put aside the package", path.string(), error.message());
    SyncDirectory(place);
    ++statistics_.packagesRejected;
    report_("put aside a package from '" + package.member + "' as " + (place / path.filename()).string() +
            ": " + reason);
}

}  // namespace quorvane::host
