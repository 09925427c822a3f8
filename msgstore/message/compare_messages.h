// msgstore/message/compare_messages.h: tells how two messages differ, through MAPI alone.
#ifndef QUORVANE_MSGSTORE_MESSAGE_COMPARE_MESSAGES_H_
#define QUORVANE_MSGSTORE_MESSAGE_COMPARE_MESSAGES_H_

#include <set>
#include <string>
#include <vector>

#include "platform/mapi/mapi.h"

namespace quorvane {

struct CompareOptions {
    // Identifiers that aren't compared, beside those that no copy carries (IsOwnProperty).
    std::set<ULONG> ignored;
    // A property that the second message has and the first hasn't doesn't count.
    bool allowAdded = false;
};

// Compares all properties (named ones by their names), recipients in order, attachments in order with what
// is embedded in them.
//
// differences  [in,out]  one line each: where, which property, how they differ.
//
// S_OK: compared, whatever came out; else the failure that ended it.
[[nodiscard]] HRESULT CompareMessages(IMessage& first, IMessage& second, const CompareOptions& options,
                                      std::vector<std::string>& differences);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_COMPARE_MESSAGES_H_
