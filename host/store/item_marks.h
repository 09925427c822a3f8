// host/store/item_marks.h: what a reader makes of an item and is no content of it: whether he read, flagged,
// answered or forwarded it, marked it as a draft of his, or as one to be deleted.
//
// Changes of them leave the message as it is, its modification time too. They lie beside it in the store: the
// read state in PR_MESSAGE_FLAGS, the others in the status that IMAPIFolder::SetMessageStatus sets, so that
// nothing that writes the message anew touches them.
#ifndef QUORVANE_HOST_STORE_ITEM_MARKS_H_
#define QUORVANE_HOST_STORE_ITEM_MARKS_H_

#include <cstdint>
#include <string>

#include "host/store/profile.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// A set of marks.
using Marks = std::uint8_t;
inline constexpr Marks kMarkRead = 1;
inline constexpr Marks kMarkFlagged = 2;
inline constexpr Marks kMarkAnswered = 4;
inline constexpr Marks kMarkForwarded = 8;
inline constexpr Marks kMarkDraft = 16;
inline constexpr Marks kMarkForDeletion = 32;
inline constexpr Marks kAllMarks = 63;

// By an item's PR_MESSAGE_FLAGS and its status.
Marks MarksOf(LONG flags, LONG status) noexcept;
Marks MarksOf(IMessage& message);
// The bits of the status that tell marks; of kMarkRead none does.
ULONG StatusOf(Marks marks) noexcept;

// Gives an item those of `marks` that are in `mask`. False when there is no such message any more. Throws a
// HostError.
bool SetMarks(const MailSession& session, const std::string& entryId, Marks marks, Marks mask);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_ITEM_MARKS_H_
