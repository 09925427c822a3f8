// monitor/event_classifier.h: what an object notification of a store means for the shared folders.
//
// Unlike the road of the contents tables this reads what the notification says, and uses no hash store: a
// change is told from no change by the time of the item's row in the database. A move between folders is an
// addition, a deletion, or one after the other. What is the engine's own doing is known by three things:
// "ItemSubmitEvent" isn't signalled while an item is being applied; the host may have locked the item; and
// the row has the message's time.
#ifndef QUORVANE_ENGINE_MONITOR_EVENT_CLASSIFIER_H_
#define QUORVANE_ENGINE_MONITOR_EVENT_CLASSIFIER_H_

#include "engine/items/item.h"
#include "engine/session/context/addin.h"
#include "engine/session/context/session_context.h"

namespace quorvane {

// One notification's work, on the calling thread.
class EventClassifier {
public:
    EventClassifier(SessionContext& session, const Addin& addin) noexcept : session_(session), addin_(addin)
    {}

    // Waits until no item is being applied, finds out whether a shared folder is concerned, and tells the
    // host, which may decline; otherwise the item goes into the package of its folder, and its row is brought
    // up to date.
    //
    // notification  [in]  of a message; any other kind is passed over.
    //
    // S_OK: it was dealt with, or concerns nobody. A failure (traced) has ended the work at its step.
    [[nodiscard]] HRESULT Classify(const NOTIFICATION& notification) noexcept;

private:
    // A folder that the item is in, or was in.
    struct Place {
        Bstr entryId;  // its long-term identifier in hexadecimal text; empty when it isn't known
        Bstr id;
        ComPtr<IFolder> folder;  // empty: it isn't shared

        HRESULT Find(IFolders& folders) noexcept;
    };
    using Callback = HRESULT (Addin::*)(IItem*, bool&) const;

    // The steps until it is known what to do; `done` comes out true when that is nothing.
    HRESULT FindOut(ULONG event, const OBJECT_NOTIFICATION& object, bool& done) noexcept;
    HRESULT FindPlaces(ULONG event, const OBJECT_NOTIFICATION& object) noexcept;
    HRESULT OpenEntry(ULONG size, LPENTRYID id, REFIID iid, ComPtr<IUnknown>& object) noexcept;
    HRESULT ReadFolderId(ULONG size, LPENTRYID id, Bstr& text) noexcept;
    void OpenMessage(const OBJECT_NOTIFICATION& object) noexcept;
    HRESULT FindFolders() noexcept;
    HRESULT IsHidden(bool& hidden) noexcept;
    HRESULT Identify() noexcept;

    HRESULT Act(ULONG event, const OBJECT_NOTIFICATION& object) noexcept;
    HRESULT ActOnAddition() noexcept;
    HRESULT ActOnChange() noexcept;
    HRESULT ActOnDeletion(const OBJECT_NOTIFICATION& object) noexcept;
    HRESULT ActOnMove() noexcept;
    // Tells the host of the item in that folder.
    HRESULT Report(const Place& place, qv_Action action, Callback callback, bool& ignored) noexcept;
    HRESULT ReportAddition() noexcept;
    HRESULT ReportDeletion(const Place& place) noexcept;
    HRESULT SendAndUpdate() noexcept;

    SessionContext& session_;
    const Addin& addin_;
    ComPtr<CItem> item_;
    ComPtr<IUnknown> message_;  // empty for a deletion
    Bstr entryId_;              // of the notification
    Bstr storeId_;
    Place place_;
    Place oldPlace_;        // of moves alone
    double savedTime_ = 0;  // the message's, or 0 for an item that has only now got its row
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_EVENT_CLASSIFIER_H_
