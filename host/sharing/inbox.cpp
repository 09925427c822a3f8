#include "host/sharing/inbox.h"

#include <algorithm>
#include <system_error>

#include "host/base/files.h"
#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/base/system_file.h"
#include "host/exchange/error.h"
#include "host/mailbox/item_text.h"

namespace quorvane::host {

namespace {

// How often a package is given to the engine before it is put aside.
constexpr int kTries = 2;
// The largest package that is taken, sealed or opened, and what it leaves free on the disk.
constexpr std::uint64_t kLargestPackage = std::uint64_t{4} << 30;
constexpr std::uint64_t kSpareRoom = std::uint64_t{64} << 20;
// How long what files said of themselves is believed: a synchroniser may bring others under their names.
constexpr std::chrono::seconds kHeadersFor{10};
// A file that was refused may be replaced by the true one. It is looked at again, less and less often.
constexpr std::chrono::seconds kFirstPause{1};
constexpr std::chrono::seconds kLongestPause{60};
// After so long one device's forgeries wait for the next look.
constexpr std::chrono::milliseconds kLongestLook{200};

// How many refused files are named; more are only counted.
constexpr std::size_t kMostTold = 100;

constexpr std::int64_t kFileTimesASecond = 10'000'000;

std::uint64_t LargestOf(exchange::PackageKind kind)
{
    switch (kind) {
        case exchange::PackageKind::kMembership:
            return exchange::kLongestFolderNote;
        case exchange::PackageKind::kDigest:
            return exchange::FolderReport::kLongest;
        case exchange::PackageKind::kFlags:
            return exchange::FlagNote::kLongest;
        default:
            return kLargestPackage;
    }
}

std::string ShownPackage(const Peer& peer, std::uint64_t sequence)
{
    return "package " + std::to_string(sequence) + " from '" + peer.member + "'";
}

}  // namespace

Inbox::Inbox(const Addin::Parts& parts, const EngineSession& engine, Matcher& matcher,
             std::function<void(const std::string&)> report, std::int64_t askAfter)
    : mailbox_(parts.mailbox),
      engine_(engine),
      records_(parts.records),
      state_(parts.state),
      applying_(parts.applying),
      statistics_(parts.statistics),
      matcher_(matcher),
      report_(std::move(report)),
      askAfter_(askAfter),
      verbose_(parts.verbose)
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

std::filesystem::path Inbox::ClearPath(const exchange::DeviceId& device, std::uint64_t sequence) const
{
    return mailbox_.InboxPath() / PathOf(exchange::TextOf(device) + "-" + std::to_string(sequence) + ".qvt");
}

std::filesystem::path Inbox::SealedPath(const exchange::DeviceId& device, std::uint64_t sequence) const
{
    return ClearPath(device, sequence).replace_extension(".qvx");
}

void Inbox::RemoveCopies(const exchange::DeviceId& device, std::uint64_t sequence) const
{
    std::error_code ignored;  // what is left lies in the way of nothing
    std::filesystem::remove(SealedPath(device, sequence), ignored);
    std::filesystem::remove(ClearPath(device, sequence), ignored);
}

bool Inbox::TakeNext(Transport& transport)
{
    if (IsBusy())
        return false;
    if (transport.peers.Current())
        return Advance(transport);
    std::vector<Peer> peers = transport.peers.All();
    // Each in its turn, so that nobody's flood holds up another.
    std::stable_partition(peers.begin(), peers.end(),
                          [this](const Peer& peer) { return lastTaken_ < peer.id; });
    for (Peer& peer : peers)
        if (peer.card && TakeFrom(transport, peer)) {
            lastTaken_ = peer.id;
            return true;
        }
    return false;
}

bool Inbox::HasWork(Transport& transport)
{
    if (IsBusy() || transport.peers.Current())
        return true;
    for (Peer& peer : transport.peers.All()) {
        const auto next = peer.card ? FindNext(transport, peer) : std::nullopt;
        if (isCutShort_ || (next && !IsPaused({peer.id, next->sequence})))
            return true;
    }
    return false;
}

// A file that was refused waits for its next look.
bool Inbox::IsPaused(const Key& key) const
{
    const auto refusal = refusals_.find(key);
    return refusal != refusals_.end() && Clock::now() < refusal->second.nextLook;
}

// Empty when it can't be told.
std::optional<Inbox::Header> Inbox::HeaderOf(Transport& transport, const Peer& peer, std::uint64_t sequence)
{
    const Key key{peer.id, sequence};
    const auto refusal = refusals_.find(key);
    if (refusal != refusals_.end() && Clock::now() < refusal->second.nextLook)
        return std::nullopt;
    const auto known = headers_.find(key);
    if (known != headers_.end())
        return known->second;
    try {
        const auto file = transport.place.Open(peer.id, sequence);
        if (!file)
            return std::nullopt;
        const exchange::SealedPackage package(*file, ShownPackage(peer, sequence));
        if (package.Label().sender != peer.id || package.Label().sequence != sequence)
            exchange::Refuse(ShownPackage(peer, sequence) + " lies under another's name");
        Header header;
        if (const auto previous = package.PreviousFor(transport.keys.Id()))
            header = exchange::ForUs{package.Label().epoch, sequence, *previous};
        headers_.emplace(key, header);
        return header;
    } catch (const exchange::Error& error) {
        Refuse(transport, peer, sequence, error.what());
        return std::nullopt;
    }
}

// The numbers of what lies there. Where one device's directory can't be read, the others' can.
std::vector<std::uint64_t> Inbox::Lying(Transport& transport, const Peer& peer)
{
    try {
        std::vector<std::uint64_t> lying = transport.place.Packages(peer.id, 1);
        // What was refused and is gone is forgotten, so that no more is kept than lies there.
        std::erase_if(refusals_, [&](const auto& refusal) {
            const auto& [device, sequence] = refusal.first;
            return device == peer.id && sequence != 0 &&
                   !std::binary_search(lying.begin(), lying.end(), sequence);
        });
        return lying;
    } catch (const exchange::Error& error) {
        if (!transport.place.IsReachable())
            throw;
        if (!IsPaused({peer.id, 0}))
            Refuse(transport, peer, 0, error.what());
        return {};
    }
}

// Whether the device that it names signed all of what lies there.
bool Inbox::IsGenuine(Transport& transport, const Peer& peer, std::uint64_t sequence)
{
    const Key key{peer.id, sequence};
    if (genuine_.contains(key))
        return true;
    try {
        const auto file = transport.place.Open(peer.id, sequence);
        if (!file)
            return false;
        exchange::SealedPackage(*file, ShownPackage(peer, sequence)).Verify(peer.card->signing);
        genuine_.insert(key);
        return true;
    } catch (const exchange::Error& error) {
        headers_.erase(key);
        Refuse(transport, peer, sequence, error.what());
        return false;
    }
}

// The next package that is this device's turn to apply. What passes for it and isn't genuine is refused on
// the way; with much of that the next look goes on.
std::optional<exchange::ForUs> Inbox::FindNext(Transport& transport, Peer& peer)
{
    if (Clock::now() >= headersEnd_) {
        headers_.clear();
        genuine_.clear();
        headersEnd_ = Clock::now() + kHeadersFor;
    }
    isCutShort_ = false;
    const auto end = Clock::now() + kLongestLook;
    std::optional<exchange::SequenceRange> gap;
    for (const std::uint64_t sequence : Lying(transport, peer)) {
        const auto header = HeaderOf(transport, peer, sequence);
        if (!header || !*header)
            continue;
        switch (exchange::JudgeOrder(peer.order, **header)) {
            case exchange::Intake::kApply:
            case exchange::Intake::kNewEpoch:
                if (IsGenuine(transport, peer, sequence)) {
                    NoteGap(transport, peer, std::nullopt);
                    return **header;
                }
                if (Clock::now() >= end) {
                    isCutShort_ = true;
                    return std::nullopt;
                }
                break;
            case exchange::Intake::kTooEarly:
                if (!gap && IsGenuine(transport, peer, sequence))
                    gap = exchange::GapBefore(peer.order, **header);
                break;
            case exchange::Intake::kOver:
                Refuse(transport, peer, sequence,
                       ShownPackage(peer, sequence) + " is of an epoch that is over");
                break;
            case exchange::Intake::kApplied:
                break;
        }
    }
    NoteGap(transport, peer, gap);
    return std::nullopt;
}

void Inbox::NoteGap(Transport& transport, Peer& peer, const std::optional<exchange::SequenceRange>& gap)
{
    const Peer before = peer;
    const auto now = static_cast<std::int64_t>(FileTimeNow()) / kFileTimesASecond;
    peer.isAsked = peer.gap.IsDue(gap, now, askAfter_);
    peer.missing = gap;
    if (peer.missing != before.missing || peer.isAsked != before.isAsked ||
        peer.gap.first != before.gap.first)
        transport.peers.NoteGap(peer);
}

bool Inbox::TakeFrom(Transport& transport, Peer& peer)
{
    const auto next = FindNext(transport, peer);
    if (!next || IsPaused({peer.id, next->sequence}))
        return false;
    try {
        return Take(transport, peer, *next);
    } catch (const exchange::Error& error) {
        RemoveCopies(peer.id, next->sequence);
        headers_.erase({peer.id, next->sequence});
        genuine_.erase({peer.id, next->sequence});
        if (!transport.place.IsReachable())
            throw;
        Refuse(transport, peer, next->sequence, error.what());
        return false;
    }
}

// Nobody else can write to the copy: what was verified there is what is opened.
Inbox::Opened Inbox::Unseal(Transport& transport, const Peer& peer, std::uint64_t sequence,
                            const std::filesystem::path& clear) const
{
    const auto copy = OpenOwnFile(SealedPath(peer.id, sequence));
    exchange::SealedPackage package(*copy, ShownPackage(peer, sequence));
    package.Verify(peer.card->signing);
    const auto previous = package.PreviousFor(transport.keys.Id());
    const exchange::PackageKind kind = package.Label().kind;
    const bool isKnown = kind == exchange::PackageKind::kItems || kind == exchange::PackageKind::kDigest ||
                         kind == exchange::PackageKind::kMembership || kind == exchange::PackageKind::kFlags;
    if (package.Label().sequence != sequence || !isKnown || !previous)
        exchange::Refuse(ShownPackage(peer, sequence) + " isn't what it was taken for");
    exchange::CheckRoom(package.ContentSize(), clear, LargestOf(kind), kSpareRoom);
    const SystemFile file(clear, SystemFile::Use::kWrite);
    package.Unseal(transport.keys, [&](std::string_view bytes) { file.Write(bytes.data(), bytes.size()); });
    return {{package.Label().epoch, sequence, *previous}, kind};
}

// True when it is on its way to the engine, or was put aside.
bool Inbox::Take(Transport& transport, const Peer& peer, const exchange::ForUs& package)
{
    const std::uint64_t sequence = package.sequence;
    // Before a byte of it is copied.
    if (!IsGenuine(transport, peer, sequence))
        return false;
    const auto file = transport.place.Open(peer.id, sequence);
    if (!file)
        return false;
    exchange::CopyIn(*file, SealedPath(peer.id, sequence), kLargestPackage, kSpareRoom);
    const Opened opened = Unseal(transport, peer, sequence, ClearPath(peer.id, sequence));
    if (opened.order != package)
        exchange::Refuse(ShownPackage(peer, sequence) + " isn't the one that was looked at");
    if (opened.kind == exchange::PackageKind::kDigest) {
        TakeReport(transport, peer, package);
        return true;
    }
    ++statistics_.packagesReceived;
    if (opened.kind == exchange::PackageKind::kItems)
        return TakeItems(transport, peer, package);
    opened.kind == exchange::PackageKind::kFlags ? TakeFlags(transport, peer, package)
                                                 : TakeNote(transport, peer, package);
    return true;
}

// One that is no report, or of a folder that its sender has no part in, is forgotten: nothing rests on it.
void Inbox::TakeReport(Transport& transport, const Peer& peer, const exchange::ForUs& package)
{
    try {
        const auto report = exchange::FolderReport::Read(
            ReadWhole(ClearPath(peer.id, package.sequence), exchange::FolderReport::kLongest),
            "a report in " + ShownPackage(peer, package.sequence));
        if (reports_ && transport.folders.IsDeviceOfFolder(report.folder, peer.id))
            reports_->Hear(peer, report);
    } catch (const exchange::Error& error) {
        if (error.What() != exchange::Error::Kind::kRefused)
            throw;
        ++statistics_.packagesRejected;
        report_("left out: " + std::string(error.what()));
    }
    Finish(transport, peer, package);
}

bool Inbox::TakeItems(Transport& transport, const Peer& peer, const exchange::ForUs& package)
{
    std::string reason;
    Package content;
    handed_.reset();
    switch (Judge(transport.folders, peer, ClearPath(peer.id, package.sequence), content, reason)) {
        case Verdict::kUse:
            BeginGroup(peer.id, package.sequence);
            handed_ = Handed{{peer.id, package.sequence}, package, std::move(content.items)};
            handed_->made = NewChanges(transport.folders, handed_->items);
            transport.peers.PutIncoming({peer.id, package.sequence, IncomingRecord::State::kTaken, {}, 0});
            tries_ = 0;
            Process(transport, peer, package.sequence);
            break;
        case Verdict::kPass:
            Finish(transport, peer, package);
            break;
        case Verdict::kReject:
            if (reports_)
                reports_->Miss(peer.id);
            TurnDown(transport, peer, package, reason);
            break;
    }
    return true;
}

// What is told of a folder. It counts as taken, whatever is found of it.
void Inbox::TakeNote(Transport& transport, const Peer& peer, const exchange::ForUs& package)
{
    try {
        transport.folders.Take(peer,
                               ReadWhole(ClearPath(peer.id, package.sequence), exchange::kLongestFolderNote));
    } catch (const exchange::Error& error) {
        if (error.What() == exchange::Error::Kind::kPassing)
            throw;
        TurnDown(transport, peer, package, error.what());
        return;
    }
    Finish(transport, peer, package);
}

// Like a note; what couldn't be kept is asked for by a comparison.
void Inbox::TakeFlags(Transport& transport, const Peer& peer, const exchange::ForUs& package)
{
    std::string reason;
    try {
        const exchange::FlagNote note = exchange::FlagNote::Read(
            ReadWhole(ClearPath(peer.id, package.sequence), exchange::FlagNote::kLongest),
            "what is told of flags in " + ShownPackage(peer, package.sequence));
        reason = WhyNot(transport.folders, peer, note);
        if (reason.empty() && flags_ && !flags_->Hear(note) && reports_)
            reports_->Miss(peer.id);
    } catch (const exchange::Error& error) {
        if (error.What() == exchange::Error::Kind::kPassing)
            throw;
        reason = error.what();
    }
    if (reason.empty())
        Finish(transport, peer, package);
    else
        TurnDown(transport, peer, package, reason);
}

// Empty when it is used; of a folder that isn't shared here yet, or any more, it is passed by.
std::string Inbox::WhyNot(SharedFolders& folders, const Peer& peer, const exchange::FlagNote& note)
{
    const auto share = records_.FindShare(note.folder);
    if (!share && folders.IsKnown(note.folder))
        return {};
    if (!share || !folders.IsDeviceOfFolder(note.folder, peer.id))
        return "'" + peer.member + "' isn't a member of the folder " + note.folder;
    if (!share->hasFlags)
        return "'" + peer.member + "' sends flags of the folder " + note.folder +
               ", whose members don't share them";
    for (const exchange::FlagNote::Item& item : note.items)
        if (const auto known = records_.FindItem(item.id); known && known->folderId != note.folder)
            return "'" + peer.member + "' sends flags of the item " + item.id +
                   " of another folder as of one of " + note.folder;
    return {};
}

// A package whose sender may not send what it holds. What follows isn't held up.
void Inbox::TurnDown(Transport& transport, const Peer& peer, const exchange::ForUs& package,
                     const std::string& reason)
{
    transport.refusals.Note(peer.id, reason);
    ++statistics_.packagesRejected;
    if (turnedDown_.size() < kMostTold && turnedDown_.insert(reason).second)
        report_("refused: " + reason);
    Finish(transport, peer, package);
}

void Inbox::Refuse(Transport& transport, const Peer& peer, std::uint64_t sequence, const std::string& reason)
{
    const Key key{peer.id, sequence};
    const auto known = refusals_.find(key);
    const auto pause =
        known == refusals_.end() ? kFirstPause : std::min(2 * known->second.pause, kLongestPause);
    const bool isNew = known == refusals_.end();
    refusals_[key] = {Clock::now() + pause, pause};
    if (!isNew)
        return;
    if (refusals_.size() > kMostTold) {
        ++statistics_.packagesRejected;
        return;
    }
    transport.peers.PutIncoming({peer.id, sequence, IncomingRecord::State::kRefused, reason, 0});
    ++statistics_.packagesRejected;
    report_("refused: " + reason);
}

// Items of a folder that nobody has accepted, or that was left, are neither applied nor kept: when it is
// accepted, all of it is asked for. Of one that is shared here a member may send, and nobody else.
Inbox::Verdict Inbox::JudgeContent(SharedFolders& folders, const Peer& peer, const Package& package,
                                   std::string& reason)
{
    if (!package.folders.empty()) {
        reason = "'" + peer.member + "' announces a folder in a form that isn't used any more";
        return Verdict::kReject;
    }
    bool isAnyHere = false, isAnyElsewhere = false, isHere = false;
    const std::string* folder = nullptr;  // of the item before, mostly the one folder of them all
    for (const PackageRecord& item : package.items) {
        if (!folder || item.folderId != *folder) {
            folder = &item.folderId;
            isHere = records_.FindShare(item.folderId).has_value();
            (isHere ? isAnyHere : isAnyElsewhere) = true;
            const bool isLeft = !isHere && folders.IsKnown(item.folderId);
            if (!isLeft && (!isHere || !folders.IsDeviceOfFolder(item.folderId, peer.id))) {
                reason = "'" + peer.member + "' isn't a member of the folder " + item.folderId;
                return Verdict::kReject;
            }
        }
        if (!isHere)
            continue;
        const auto known = records_.FindItem(item.id);
        if (known && known->folderId != item.folderId) {
            reason = "'" + peer.member + "' sends the item " + item.id + " of another folder as one of " +
                     item.folderId;
            return Verdict::kReject;
        }
    }
    if (isAnyHere && isAnyElsewhere) {
        reason = "'" + peer.member + "' sends items of several folders in one package";
        return Verdict::kReject;
    }
    return isAnyHere ? Verdict::kUse : Verdict::kPass;
}

Inbox::Verdict Inbox::Judge(SharedFolders& folders, const Peer& peer, const std::filesystem::path& path,
                            Package& package, std::string& reason)
{
    try {
        const ComPtr<IStorage> root = OpenCompoundFile(path);
        if (!IsPackage(*root)) {
            reason = "'" + peer.member + "' sends a compound file that is no package";
            return Verdict::kReject;
        }
        package = ReadPackage(*root, path.string(), [](const PackageRecord&, IStorage&) {});
        return JudgeContent(folders, peer, package, reason);
    } catch (const HostError& error) {
        if (error.IsPassing())
            exchange::FailForNow(error.what());
        reason = error.what();
        return Verdict::kReject;
    }
}

// Whether an item of a package that the engine is done with has reached the store, or was left aside on
// purpose.
bool Inbox::IsApplied(const PackageRecord& item)
{
    const auto sent = ParseItem(item.customInfo, !item.hasMessage);
    const auto record = records_.FindItem(item.id);
    if (!sent || !record)
        return !sent;
    const exchange::ItemHeads known =
        record->heads.Shown() ? record->heads : FormerHeads(record->version, record->deleted);
    if (known.Lacks(sent->heads))
        return false;
    if (record->deleted)
        return item.hasMessage || !state_.RowOfId(item.id);
    // A power cut may have left the record of a message, and not the message.
    const bool isHere = record->isWhole && state_.RowOfId(item.id);
    return !item.hasMessage || isHere || *known.Shown() != *sent->heads.Shown();
}

std::size_t Inbox::CountMissing(const std::vector<PackageRecord>& items)
{
    return static_cast<std::size_t>(std::count_if(
        items.begin(), items.end(), [this](const PackageRecord& item) { return !IsApplied(item); }));
}

// Whether the engine is done with all of the package that it was given. Its sealed copy is opened once more
// only where that isn't so.
bool Inbox::AdvanceHanded(Transport& transport, const IncomingRecord& current)
{
    const std::optional<Handed> handed = std::exchange(handed_, std::nullopt);
    if (!handed || current.state != IncomingRecord::State::kGiven ||
        handed->key != Key{current.device, current.sequence})
        return false;
    const auto peer = transport.peers.Find(current.device);
    if (!peer || !peer->card || CountMissing(handed->items) > 0)
        return false;
    Finish(transport, *peer, handed->order, handed->items.size(), handed->made);
    return true;
}

// The current package, while the engine is free: it is handed over, or the engine is done with it. What it
// couldn't apply is tried once more, out of the sealed copy; then the package is put aside.
bool Inbox::Advance(Transport& transport)
{
    const IncomingRecord current = *transport.peers.Current();
    if (AdvanceHanded(transport, current))
        return true;
    const auto peer = transport.peers.Find(current.device);
    exchange::ForUs package;
    try {
        if (!peer || !peer->card)
            exchange::Refuse("a package from a device that isn't known any more");
        package =
            Unseal(transport, *peer, current.sequence, ClearPath(current.device, current.sequence)).order;
    } catch (const exchange::Error&) {
        // The copy didn't outlive a power cut, or the device was dropped: it is taken anew, if at all.
        RemoveCopies(current.device, current.sequence);
        transport.peers.ForgetIncoming(current.device, current.sequence);
        return false;
    }
    const std::filesystem::path path = ClearPath(peer->id, current.sequence);
    if (current.state == IncomingRecord::State::kTaken) {
        ++statistics_.packagesReceived;
        return TakeItems(transport, *peer, package);  // who may send what may have changed since
    }
    const Package content =
        ReadPackage(*OpenCompoundFile(path), path.string(), [](const PackageRecord&, IStorage&) {});
    const std::size_t missing = CountMissing(content.items);
    if (missing > 0) {
        if (group_)
            group_->Synchronize();  // or the run ends: no item is to blame for messages that couldn't be kept
        // A message that was made and has no row would be made a second time, or pass for one made here.
        matcher_.MatchPackage(path.string());
        if (tries_ < kTries) {
            Process(transport, *peer, current.sequence);
            return true;
        }
        PutAside(*peer, path, std::to_string(missing) + " of its items could not be applied");
    }
    Finish(transport, *peer, package, content.items.size() - missing);
    return true;
}

// What is applied in a group is applied once more after a power cut: its sealed copy is on the disk before.
// So it is with a single item, too: what is noted of it doesn't wait for the disk, and its message may.
void Inbox::BeginGroup(const exchange::DeviceId& device, std::uint64_t sequence)
{
    if (!group_)
        return;
    SyncFile(SealedPath(device, sequence));
    group_->BeginApplying();
}

// Of a copy that is gone nothing is applied: its package is taken anew.
void Inbox::ResumeGroup(Transport& transport)
{
    const auto current = transport.peers.Current();
    std::error_code error;
    if (current && std::filesystem::exists(SealedPath(current->device, current->sequence), error))
        BeginGroup(current->device, current->sequence);
}

void Inbox::Recover(Transport& transport, Recovery& recovery)
{
    const auto current = transport.peers.Current();
    const auto peer = current ? transport.peers.Find(current->device) : std::nullopt;
    if (!peer || !peer->card)
        return;
    const std::filesystem::path copy = mailbox_.InboxPath() / "recovery.qvt";
    std::error_code ignored;  // it lies in the way of nothing
    try {
        Unseal(transport, *peer, current->sequence, copy);
    } catch (const exchange::Error& error) {
        if (error.What() == exchange::Error::Kind::kPassing)
            Fail("look through the package in hand of", mailbox_.Name(), error.what());
        std::filesystem::remove(copy, ignored);
        return;  // it wasn't in hand yet
    }
    recovery.MendReceived(copy);
    std::filesystem::remove(copy, ignored);
}

// Those that were made since the folder is shared here: the others didn't wait for the exchange.
std::vector<std::uint64_t> Inbox::NewChanges(SharedFolders& folders, const std::vector<PackageRecord>& items)
{
    std::vector<std::uint64_t> made;
    const std::uint64_t since = items.empty() ? 0 : folders.SharedSince(items.front().folderId);
    for (const PackageRecord& item : items) {
        const auto sent = ParseItem(item.customInfo, !item.hasMessage);
        const exchange::Revision* const shown = sent ? sent->heads.Shown() : nullptr;
        if (!shown || shown->stamp < since)
            continue;
        const auto known = records_.FindItem(item.id);
        if (!known || known->heads.Lacks(sent->heads))
            made.push_back(shown->stamp);
    }
    return made;
}

void Inbox::Finish(Transport& transport, const Peer& peer, const exchange::ForUs& package, std::size_t items,
                   const std::vector<std::uint64_t>& made)
{
    if (group_)
        group_->End();
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(SealedPath(peer.id, package.sequence), error);
    transport.peers.NoteApplied(
        peer.id, package, {1, static_cast<std::int64_t>(items), error ? 0 : static_cast<std::int64_t>(bytes)},
        made);
    if (verbose_)
        report_(ShownPackage(peer, package.sequence) + " is taken");
    RemoveCopies(peer.id, package.sequence);
    refusals_.erase({peer.id, package.sequence});
    tries_ = 0;
    statistics_.Touch();
}

// Handed over before it is noted: a second time does no harm.
void Inbox::Process(Transport& transport, const Peer& peer, std::uint64_t sequence)
{
    const std::filesystem::path path = ClearPath(peer.id, sequence);
    ++tries_;
    Check(engine_.Session().ProcessStorageFile(Bstr(OleTextOf(path)).Get(), BstrOf(peer.member).Get()),
          "hand over the package", path.string());
    transport.peers.PutIncoming({peer.id, sequence, IncomingRecord::State::kGiven, {}, 0});
    statistics_.Touch();
}

void Inbox::PutAside(const Peer& peer, const std::filesystem::path& path, const std::string& reason)
{
    const std::filesystem::path place = mailbox_.Directory() / "rejected";
    MakeDirectory(place);
    std::error_code error;
    std::filesystem::rename(path, place / path.filename(), error);
    if (error)
        Fail("put aside the package", path.string(), error.message());
    SyncDirectory(place);
    ++statistics_.packagesRejected;
    if (reports_)
        reports_->Miss(peer.id);
    report_("put aside a package from '" + peer.member + "' as " + (place / path.filename()).string() + ": " +
            reason);
}

}  // namespace quorvane::host
