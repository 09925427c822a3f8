// msgstore/store/contents_columns.h: the properties of messages that stand in columns of their own.
#ifndef QUORVANE_MSGSTORE_STORE_CONTENTS_COLUMNS_H_
#define QUORVANE_MSGSTORE_STORE_CONTENTS_COLUMNS_H_

#include <array>
#include <string_view>

#include "platform/mapi/mapi.h"

namespace quorvane {

enum class ColumnKind { Text, Long, Time, Binary };

struct ContentsColumn {
    ULONG tag;
    ColumnKind kind;
    std::string_view name;        // in `message`
    std::string_view foldedName;  // of the column that has its text folded; empty if there is none
};

inline constexpr std::array kContentsColumns = {
    ContentsColumn{PR_CREATION_TIME, ColumnKind::Time, "created", {}},
    ContentsColumn{PR_LAST_MODIFICATION_TIME, ColumnKind::Time, "modified", {}},
    ContentsColumn{PR_MESSAGE_FLAGS, ColumnKind::Long, "flags", {}},
    ContentsColumn{PR_MESSAGE_SIZE, ColumnKind::Long, "size", {}},
    ContentsColumn{kPrMessageStatus, ColumnKind::Long, "status", {}},
    ContentsColumn{PR_MESSAGE_CLASS_W, ColumnKind::Text, "message_class", {}},
    ContentsColumn{PR_SUBJECT_W, ColumnKind::Text, "subject", "subject_key"},
    ContentsColumn{PR_SUBJECT_PREFIX_W, ColumnKind::Text, "subject_prefix", {}},
    ContentsColumn{PR_NORMALIZED_SUBJECT_W, ColumnKind::Text, "normal_subject", {}},
    ContentsColumn{PR_SENDER_NAME_W, ColumnKind::Text, "sender_name", {}},
    ContentsColumn{PR_SENT_REPRESENTING_NAME_W, ColumnKind::Text, "sent_for_name", {}},
    ContentsColumn{PR_DISPLAY_TO_W, ColumnKind::Text, "display_to", {}},
    ContentsColumn{PR_DISPLAY_CC_W, ColumnKind::Text, "display_cc", {}},
    ContentsColumn{PR_DISPLAY_BCC_W, ColumnKind::Text, "display_bcc", {}},
    ContentsColumn{PR_CLIENT_SUBMIT_TIME, ColumnKind::Time, "submitted", {}},
    ContentsColumn{PR_MESSAGE_DELIVERY_TIME, ColumnKind::Time, "delivered", {}},
    ContentsColumn{PR_IMPORTANCE, ColumnKind::Long, "importance", {}},
    ContentsColumn{PR_SEARCH_KEY, ColumnKind::Binary, "search_key", {}},
};

// The column of a property, whatever type the tag asks for; null if it has none.
constexpr const ContentsColumn* FindContentsColumn(ULONG tag) noexcept
{
    for (const ContentsColumn& column : kContentsColumns) {
        if (PROP_ID(column.tag) == PROP_ID(tag))
            return &column;
    }
    return nullptr;
}

// Whether a property of a type answers to a tag that asks for another.
constexpr bool TypeFits(ULONG wanted, ULONG type) noexcept
{
    return wanted == type || wanted == PT_UNSPECIFIED || (wanted == PT_STRING8 && type == PT_UNICODE);
}

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_CONTENTS_COLUMNS_H_
