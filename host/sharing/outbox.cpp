#include "host/sharing/outbox.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "host/base/files.h"
#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/mailbox/item_text.h"
#include "host/sharing/recipients.h"
#include "host/store/folders.h"
#include "host/store/properties.h"
#include "quorvane3/storage.h"

namespace quorvane::host {

namespace {

// How long a package is left alone by the engine until it is taken: so long as more is likely to come.
constexpr auto kQuietTime = std::chrono::milliseconds(75);
// The same of the first package after nothing was taken for a while, which is mostly one edit. The engine
// rests for 10 ms before each item of a batch.
constexpr auto kQuietTimeOfFirst = std::chrono::milliseconds(25);
constexpr auto kWhile = std::chrono::seconds(1);
constexpr auto kLongestWait = std::chrono::seconds(3);

// Whether no writer of the engine has the file open any more.
bool IsClosed(const std::string& path)
{
    ComPtr<IStorage> storage;
    const OleString name = OleTextOf(PathOf(path));
    const HRESULT hr = StgOpenStorage(name.c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr,
                                      0, storage.Put());
    return hr != STG_E_SHAREVIOLATION && hr != STG_E_LOCKVIOLATION;
}

std::string HeadsIn(const PackageRecord& item)
{
    const auto text = ParseItem(item.customInfo, !item.hasMessage);
    return text ? FormatHeads(text->heads) : std::string();
}

// Files of what members are to be told of folders, and of flags, begin so.
const std::string kNotePrefix = "note-";

exchange::PackageKind KindOf(const OutgoingPackage& package)
{
    return ParseReportRecipients(package.recipients).empty() ? package.kind : exchange::PackageKind::kDigest;
}

// 0 of one that isn't there.
std::uint64_t SizeOf(const std::string& path)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(PathOf(path), error);
    return error ? 0 : size;
}

bool IsForOneMember(const std::string& recipients)
{
    return ParseMemberRecipients(recipients).has_value();
}

}  // namespace

std::vector<Outbox::Listed> Outbox::ListEngine() const
{
    const ComPtr<IStorageFiles> files = engine_.StorageFiles();
    LONG count = 0;
    Check(files->get_Count(&count), "list", "the packages");
    std::vector<Listed> packages;
    for (LONG i = 1; i <= count; ++i) {
        Variant value;
        // A package may be added meanwhile; the next round sees it.
        if (FAILED(files->get_Item(Variant::Long(i).Raw(), value.Put())) || !value.Is(VT_DISPATCH))
            continue;
        ComPtr<IStorageFile> file;
        if (SUCCEEDED(QueryFor(value.Raw().pdispVal, file)))
            packages.push_back(
                {ReadText(*file, &IStorageFile::get_Recipients), ReadText(*file, &IStorageFile::get_Path)});
    }
    std::stable_partition(packages.begin(), packages.end(),
                          [](const Listed& package) { return IsForOneMember(package.recipients); });
    return packages;
}

void Outbox::Forget(const std::string& recipients) const
{
    const Variant key = Variant::Text(FromUtf8(recipients));
    Check(engine_.StorageFiles()->Remove(key.Raw()), "take the package for", recipients);
}

// Of a package that had no number yet nobody knows whether the disk has all of it: a power cut may have come
// before. What it held is noted as changed, or as owed, and is packed anew.
void Outbox::Resume()
{
    std::error_code ignored;  // the engine removes what it finds without a record
    const auto outgoing = records_.Outgoing();
    for (const Listed& package : ListEngine()) {
        Forget(package.recipients);
        if (std::none_of(outgoing.begin(), outgoing.end(), [&](const OutgoingPackage& one) {
                return one.path == package.path && one.isPlanned;
            }))
            std::filesystem::remove(PathOf(package.path), ignored);
    }
    for (const OutgoingPackage& package : outgoing) {
        if (package.isPlanned || KindOf(package) != exchange::PackageKind::kItems)
            continue;
        std::filesystem::remove(PathOf(package.path), ignored);
        records_.FinishOutgoing(package.number);
    }
    RemoveStrayNotes();
    Plan();
}

// Those that got no number before a kill: they are made again.
void Outbox::RemoveStrayNotes() const
{
    const auto outgoing = records_.Outgoing();
    for (const auto& entry : std::filesystem::directory_iterator(parts_.mailbox.PackagesPath())) {
        const bool isAwaited = std::any_of(
            outgoing.begin(), outgoing.end(),
            [&](const OutgoingPackage& package) { return package.path == entry.path().string(); });
        std::error_code ignored;  // one more file of a few bytes
        if (!isAwaited && entry.path().filename().string().starts_with(kNotePrefix))
            std::filesystem::remove(entry.path(), ignored);
    }
}

// Whether a package has been left alone for a moment, or has been filling for long enough.
bool Outbox::IsReady(const std::string& path)
{
    std::error_code error;
    const auto written = std::filesystem::last_write_time(PathOf(path), error);
    if (error)
        return true;  // gone: taking it clears the engine's record
    if (SizeOf(path) >= packageSize_)
        return true;
    const auto now = std::chrono::steady_clock::now();
    const auto first = firstSeen_.try_emplace(path, now).first->second;
    const auto quiet = first - lastTaken_ < kWhile ? kQuietTime : kQuietTimeOfFirst;
    return std::filesystem::file_time_type::clock::now() - written >= quiet || now - first >= kLongestWait;
}

void Outbox::Take(const Listed& package)
{
    firstSeen_.erase(package.path);
    lastTaken_ = std::chrono::steady_clock::now();
    records_.AddOutgoing(package.path, package.recipients);
    Forget(package.recipients);
}

void Outbox::Take(const std::string& recipients)
{
    const std::lock_guard lock(taking_);
    for (const Listed& package : ListEngine())
        if (package.recipients == recipients)
            Take(package);
}

void Outbox::MakeRoom(std::uint64_t size)
{
    const std::lock_guard lock(taking_);
    for (const Listed& package : ListEngine())
        if (SizeOf(package.path) + size > packageSize_)
            Take(package);
}

void Outbox::TakeReady(bool evenIfFresh)
{
    const std::lock_guard lock(taking_);
    for (const Listed& package : ListEngine())
        if (evenIfFresh || IsReady(package.path))
            Take(package);
}

std::string Outbox::FolderOf(const OutgoingPackage& package)
{
    if (const auto target = ParseMemberRecipients(package.recipients))
        return target->folderId;
    const auto share = records_.FindShareByEntryId(package.recipients);
    return share ? share->folderId : std::string();
}

std::vector<std::string> Outbox::ReceiversOf(const OutgoingPackage& package)
{
    if (const auto target = ParseMemberRecipients(package.recipients))
        return {target->member};
    const auto share = records_.FindShareByEntryId(package.recipients);
    return share ? records_.Members(share->folderId, true) : std::vector<std::string>();
}

void Outbox::NoteUnsent(const std::string& id, const std::string& folderId, const std::string& reason)
{
    const auto row = parts_.state.RowOfId(id);
    const ComPtr<IMessage> message = row ? OpenMessage(parts_.mail, row->entryId, false) : nullptr;
    const std::string subject = message ? TextOf(*message, PR_SUBJECT_W) : std::string();
    records_.PutUnsent({id, folderId, subject, reason});
    report_("the item " + id + " '" + subject + "' is left unsent: " + reason);
}

// A package that nobody could read reaches nobody.
void Outbox::PutAside(const OutgoingPackage& package)
{
    const std::filesystem::path path = PathOf(package.path);
    const std::filesystem::path place = parts_.mailbox.Directory() / "rejected";
    MakeDirectory(place);
    std::error_code error;
    std::filesystem::rename(path, place / path.filename(), error);
    if (error)
        Fail("put aside the package", package.path, error.message());
    report_("a package that was to be sent is damaged and lies in " + (place / path.filename()).string() +
            "; what it held is packed once more");
}

// What a package holds that may be sent; what may not is taken out of it first. False when not all of it can
// be read.
bool Outbox::LookThrough(const OutgoingPackage& package, Package& content)
try {
    const std::filesystem::path path = PathOf(package.path);
    if (IsRuined(path)) {
        PutAside(package);
        return false;
    }
    CheckedPackage checked = CheckPackage(*OpenCompoundFile(path), package.path);
    // One without an ID never passed for sent: whoever wrote it does so again.
    for (const DamagedElement& element : checked.damaged)
        if (!element.id.empty())
            NoteUnsent(element.id, element.folderId, element.reason);
    if (!checked.damaged.empty())
        TakeOut(path, checked.damaged);
    content = std::move(checked.sound);
    return true;
} catch (const HostError& error) {
    if (error.IsPassing())
        throw;
    PutAside(package);
    return false;
}

// Nobody is told of what a power cut could take back.
void Outbox::Fix(const OutgoingPackage& package, const PackagePlan& plan)
{
    if (group_)
        group_->Synchronize();
    records_.PlanPackage(package.number, plan);
}

// False while a writer of the engine that was late still has the package open.
bool Outbox::Plan(const OutgoingPackage& package)
{
    if (package.isPlanned)
        return true;
    std::error_code error;
    PackagePlan plan;
    plan.device = ParseReportRecipients(package.recipients);
    if (!plan.device.empty()) {
        Fix(package, plan);
        return true;
    }
    Package content;
    if (std::filesystem::exists(PathOf(package.path), error)) {
        if (!IsClosed(package.path))
            return false;
        if (LookThrough(package, content) && !content.items.empty())
            plan.members = ReceiversOf(package);
    }
    // What it holds counts as sent from there on.
    if (!content.items.empty())
        SyncFile(PathOf(package.path));
    for (PackageRecord& item : content.items)
        plan.items.push_back({std::move(item.id), std::move(item.folderId), HeadsIn(item)});
    plan.isForAll = !IsForOneMember(package.recipients);
    Fix(package, plan);
    return true;
}

void Outbox::Plan()
{
    for (const OutgoingPackage& package : records_.Outgoing())
        if (!Plan(package))
            return;  // those behind it wait, for the order
}

// Who left the folder since the package got its number doesn't get it. What he is still to be given of others
// follows in later ones.
std::vector<exchange::Receiver> Outbox::DevicesFor(const OutgoingPackage& package, Transport& transport)
{
    std::vector<exchange::Receiver> receivers = transport.peers.ReceiversOf(package.sequence);
    const exchange::PackageKind kind = KindOf(package);
    if (kind != exchange::PackageKind::kItems && kind != exchange::PackageKind::kFlags)
        return receivers;
    const std::string folderId = FolderOf(package);
    std::erase_if(receivers, [&](const exchange::Receiver& receiver) {
        const bool isOut = !transport.folders.IsDeviceOfFolder(folderId, receiver.id);
        if (isOut)
            transport.peers.Remake(receiver.id);
        return isOut;
    });
    return receivers;
}

// What is gone from the disk is made again for those who were to get it.
void Outbox::Lay(const OutgoingPackage& package, Transport& transport)
{
    const std::filesystem::path path = PathOf(package.path);
    const auto receivers = DevicesFor(package, transport);
    std::error_code error;
    std::uint64_t bytes = 0;
    if (std::filesystem::exists(path, error)) {
        if (!receivers.empty()) {
            bytes = LaySealed(transport, {package.sequence, KindOf(package)}, receivers, path);
            ++parts_.statistics.packagesSent;
            if (parts_.verbose)
                report_("package " + std::to_string(package.sequence) + " for " +
                        Counted(receivers.size(), "device") + " lies in the exchange");
        }
    } else {
        for (const exchange::Receiver& receiver : receivers)
            transport.peers.Remake(receiver.id);
    }
    records_.NoteLaid(package.number, bytes);
    parts_.statistics.Touch();
}

// What is told of folders goes out in an order of its own: those who get items know the folder before.
void Outbox::TakeNotes(SharedFolders& folders)
{
    for (const DueNote& note : folders.DueNotes()) {
        const std::filesystem::path path =
            parts_.mailbox.PackagesPath() /
            PathOf(kNotePrefix + note.founding.substr(0, 12) + "-" + std::to_string(FileTimeNow()) + ".qvn");
        WriteDurably(path, note.bytes);
        folders.NoteTold(note, path.string());
        parts_.statistics.Touch();
    }
}

void Outbox::Deliver(Transport& transport)
{
    Plan();
    for (const OutgoingPackage& package : records_.Outgoing()) {
        if (!package.isPlanned)
            return;
        if (package.sequence != 0 && !package.isLaid)
            Lay(package, transport);
        std::error_code error;
        std::filesystem::remove(PathOf(package.path), error);
        records_.FinishOutgoing(package.number);
    }
}

bool Outbox::HasWork()
{
    return !ListEngine().empty() || !records_.Outgoing().empty();
}

bool Outbox::HasUnplanned()
{
    const auto outgoing = records_.Outgoing();
    return !ListEngine().empty() ||
           std::any_of(outgoing.begin(), outgoing.end(),
                       [](const OutgoingPackage& package) { return !package.isPlanned; });
}

bool Outbox::IsUnplanned(const std::string& recipients)
{
    const auto outgoing = records_.Outgoing();
    return std::any_of(outgoing.begin(), outgoing.end(), [&](const OutgoingPackage& package) {
        return package.recipients == recipients && !package.isPlanned;
    });
}

}  // namespace quorvane::host
