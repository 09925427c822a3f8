// host/sharing/addin.h: what the program answers to the engine's callbacks.
//
// What is known of an item's versions travels in its CustomInfo; item_versions.h tells what becomes of it
// here.
#ifndef QUORVANE_HOST_SHARING_ADDIN_H_
#define QUORVANE_HOST_SHARING_ADDIN_H_

#include <mutex>
#include <string>

#include "host/mailbox/mailbox.h"
#include "host/mailbox/records.h"
#include "host/sharing/apply_guard.h"
#include "host/sharing/deletion_notes.h"
#include "host/sharing/engine.h"
#include "host/sharing/item_state.h"
#include "host/sharing/item_versions.h"
#include "host/sharing/statistics.h"
#include "host/store/profile.h"

namespace quorvane::host {

// What a resend of the engine's is to send.
class ResendRules {
public:
    // Whether the job is to send an item; `known` is what the program knows of it, `current` whether it is
    // still as it was when it was sent or received last.
    virtual bool Wants(const std::string& job, const std::string& id, const std::optional<ItemRecord>& known,
                       bool current) = 0;

protected:
    ~ResendRules() = default;
};

// Packages are of a bounded size.
class PackageRoom {
public:
    // An item of about `size` bytes is about to be packed: what would become too large with it is closed.
    virtual void MakeRoom(std::uint64_t size) = 0;

protected:
    ~PackageRoom() = default;
};

// What readers make of items outlives that these are applied (flag_sharing.h).
class MarkKeeper {
public:
    // An item of a folder is about to be applied.
    virtual void KeepMarks(const std::string& id, const std::string& folderId) = 0;

protected:
    ~MarkKeeper() = default;
};

class Addin final : public ExtHandler {
public:
    struct Parts {
        const Mailbox& mailbox;
        const MailSession& mail;
        Records& records;
        ItemState& state;
        ApplyGuard& applying;
        Statistics& statistics;
        bool verbose;
    };

    explicit Addin(const Parts& parts)
        : parts_(parts),
          versions_(parts.mailbox, parts.mail, parts.records, parts.state),
          deletions_(parts.mail, parts.records, parts.state, versions_)
    {}

    // The engine that calls back; set after the logon, before its first job.
    void SetEngine(const EngineSession& engine) noexcept { engine_ = &engine; }

    // Asked by resends, while it is set; null ends that, and waits for a question under way. Without it they
    // send nothing.
    void SetResendRules(ResendRules* rules)
    {
        const std::lock_guard lock(rulesMutex_);
        rules_ = rules;
    }

    // The same for packages; without it they have no bound.
    void SetPackageRoom(PackageRoom* room)
    {
        const std::lock_guard lock(rulesMutex_);
        room_ = room;
    }
    // The same for what readers make of items; without it an item that is applied is unread then.
    void SetMarkKeeper(MarkKeeper* marks)
    {
        const std::lock_guard lock(rulesMutex_);
        marks_ = marks;
    }
    // Before a message is packed.
    void MakeRoomFor(IMessage& message);

    ItemVersions& Versions() noexcept { return versions_; }
    // For whoever holds the versions' lock.
    DeletionNotes& Deletions() noexcept { return deletions_; }

    HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) override;
    HRESULT OnItemAdded(IItem* item, bool& ignore) override
    {
        return OnLocalChange("onItemAdded", *item, ignore);
    }
    HRESULT OnItemChanged(IItem* item, bool& ignore) override
    {
        return OnLocalChange("onItemChanged", *item, ignore);
    }
    HRESULT OnItemDeleted(IItem* item, bool& ignore) override;
    HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) override;
    HRESULT OnPostprocess(BSTR entryId, BSTR storeId) override;
    HRESULT DatabasePath(Bstr& path) override;
    HRESULT ProductCode(Bstr& code) override;

private:
    void AwaitApplying(const std::string& entryId, const std::string& folderId) const;
    // An item that the engine came upon in a folder, and what is known of it.
    struct LocalItem {
        std::string folderId;
        ComPtr<IUnknown> raw;
        ComPtr<IMessage> message;
        std::uint64_t modified = 0;
        std::optional<SharingRow> row;
        std::optional<ItemRecord> known;
        bool isOfThisFolder = false;  // and not of another, from where it was moved here
        bool isCurrent = false;
    };
    HRESULT Examine(IItem& item, LocalItem& local);
    void KeepMarks(const Arrival& arrival);
    bool IsWanted(BSTR job, const LocalItem& local);
    void NoteDeparture(const LocalItem& local);
    HRESULT Stamp(IItem& item, const LocalItem& local, const char* event, bool isGiven, bool& ignore);
    HRESULT OnLocalChange(const char* event, IItem& item, bool& ignore);
    bool IsStillThere(IItem& item) const;
    HRESULT ChooseId(IItem& item, const SharingRow& row, bool stays);
    void Log(const char* event, const std::string& id, const std::string& what) const;
    void LogWithSubject(const char* event, const std::string& id) const;

    Parts parts_;
    ItemVersions versions_;
    DeletionNotes deletions_;
    const EngineSession* engine_ = nullptr;
    std::mutex rulesMutex_;
    ResendRules* rules_ = nullptr;
    PackageRoom* room_ = nullptr;
    MarkKeeper* marks_ = nullptr;
};

// Adds a shared folder to the engine. Throws a HostError.
ComPtr<IFolder> AddEngineFolder(const EngineSession& engine, const Share& share);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_ADDIN_H_
