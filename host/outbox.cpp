#include "host/outbox.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "host/announcement.h"
#include "host/path_text.h"
#include "quorvane3/storage.h"

namespace quorvane::host {

namespace {

constexpr auto kQuietTime = std::chrono::milliseconds(250);
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

bool IsAnnouncement(const std::string& recipients)
{
    return ParseAnnouncementRecipients(recipients).has_value();
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
                          [](const Listed& package) { return IsAnnouncement(package.recipients); });
    return packages;
}

void Outbox::Forget(const std::string& recipients) const
{
    const Variant key = Variant::Text(FromUtf8(recipients));
    Check(engine_.StorageFiles()->Remove(key.Raw()), "take the package for", recipients);
}

void Outbox::Resume()
{
    const std::vector<Listed> listed = ListEngine();
    for (const OutgoingPackage& package : records_.Outgoing()) {
        const auto found = std::find_if(listed.begin(), listed.end(),
                                        [&](const Listed& entry) { return entry.path == package.path; });
        if (found != listed.end())
            Forget(found->recipients);
        Plan(package);
    }
}

// Whether a package has been left alone for a moment, or has been filling for long enough.
bool Outbox::IsReady(const std::string& path)
{
    std::error_code error;
    const auto written = std::filesystem::last_write_time(PathOf(path), error);
    if (error)
        return true;  // gone: taking it clears the engine's record
    const auto now = std::chrono::steady_clock::now();
    const auto first = firstSeen_.try_emplace(path, now).first->second;
    return std::filesystem::file_time_type::clock::now() - written >= kQuietTime ||
           now - first >= kLongestWait;
}

void Outbox::Take(const Listed& package)
{
    firstSeen_.erase(package.path);
    const std::int64_t number = records_.AddOutgoing(package.path, package.recipients);
    Forget(package.recipients);
    Plan({number, package.path, package.recipients});
}

void Outbox::TakeReady(bool evenIfFresh)
{
    for (const Listed& package : ListEngine())
        if (evenIfFresh || IsAnnouncement(package.recipients) || IsReady(package.path))
            Take(package);
}

std::vector<Delivery> Outbox::Plan(const OutgoingPackage& package)
{
    if (const auto target = ParseAnnouncementRecipients(package.recipients))
        return records_.PlanDeliveries(package.number, {target->member}, target->folderId);
    const auto share = records_.FindShareByEntryId(package.recipients);
    return records_.PlanDeliveries(
        package.number, share ? records_.Members(share->folderId, true) : std::vector<std::string>(), {});
}

void Outbox::Deliver(const Exchange& exchange)
{
    for (const OutgoingPackage& package : records_.Outgoing()) {
        std::error_code error;
        const std::filesystem::path path = PathOf(package.path);
        const bool exists = std::filesystem::exists(path, error);
        if (exists && !IsClosed(package.path))
            return;  // a writer that was late; those behind it wait, for the order
        for (const Delivery& delivery : Plan(package)) {
            if (exists)
                exchange.Deliver(delivery.member, delivery.sequence, path);
            records_.FinishDelivery(package.number, delivery.member);
            statistics_.packagesSent += exists ? 1 : 0;
            statistics_.Touch();
        }
        std::filesystem::remove(path, error);
        records_.FinishOutgoing(package.number);
    }
}

bool Outbox::HasWork()
{
    return !ListEngine().empty() || !records_.Outgoing().empty();
}

}  // namespace quorvane::host
