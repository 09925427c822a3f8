#include "host/store/item_marks.h"

#include <utility>

#include "host/base/errors.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// Bits of the status, by their published meanings; the last one is of those that are left to applications.
constexpr std::pair<Marks, ULONG> kStatusBits[] = {{kMarkFlagged, 0x2},
                                                   {kMarkForDeletion, 0x8},
                                                   {kMarkDraft, 0x100},
                                                   {kMarkAnswered, 0x200},
                                                   {kMarkForwarded, 0x10000}};

}  // namespace

ULONG StatusOf(Marks marks) noexcept
{
    ULONG status = 0;
    for (const auto& [mark, bit] : kStatusBits)
        status |= (marks & mark) != 0 ? bit : 0;
    return status;
}

Marks MarksOf(LONG flags, LONG status) noexcept
{
    const auto bits = static_cast<ULONG>(status);
    int marks = (flags & static_cast<LONG>(MSGFLAG_READ)) != 0 ? kMarkRead : 0;
    for (const auto& [mark, bit] : kStatusBits)
        marks |= (bits & bit) != 0 ? mark : 0;
    return static_cast<Marks>(marks);
}

Marks MarksOf(IMessage& message)
{
    return MarksOf(LongOf(message, PR_MESSAGE_FLAGS), LongOf(message, quorvane::kPrMessageStatus));
}

bool SetMarks(const MailSession& session, const std::string& entryId, Marks marks, Marks mask)
{
    const std::string place = FolderOfMessage(session, entryId);
    const ComPtr<IMAPIFolder> folder = place.empty() ? nullptr : OpenFolder(session, place);
    if (!folder)
        return false;
    Bytes id = FromHex(entryId);
    if ((mask & kMarkRead) != 0) {
        SBinary one{static_cast<ULONG>(id.size()), id.data()};
        ENTRYLIST list{1, &one};
        const ULONG flags = (marks & kMarkRead) != 0 ? SUPPRESS_RECEIPT : CLEAR_READ_FLAG;
        const HRESULT hr = folder->SetReadFlags(&list, 0, nullptr, flags);
        if (hr == MAPI_W_PARTIAL_COMPLETION)
            return false;
        Check(hr, "mark the item", entryId);
    }
    const ULONG statusMask = StatusOf(mask);
    if (statusMask == 0)
        return true;
    const HRESULT hr = folder->SetMessageStatus(static_cast<ULONG>(id.size()), EntryIdOf(id), StatusOf(marks),
                                                statusMask, nullptr);
    if (hr == MAPI_E_NOT_FOUND)
        return false;
    Check(hr, "mark the item", entryId);
    return true;
}

}  // namespace quorvane::host
