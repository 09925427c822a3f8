// msgstore/message/recipients.h: the recipients of one message.
#ifndef QUORVANE_MSGSTORE_MESSAGE_RECIPIENTS_H_
#define QUORVANE_MSGSTORE_MESSAGE_RECIPIENTS_H_

#include <vector>

#include "msgstore/props/property_bag.h"
#include "msgstore/util/memory.h"

namespace quorvane {

// The recipients' rows, each known by its PR_ROWID. No lock.
class Recipients {
public:
    // Takes over rows; one without a PR_ROWID, or with one that was there before, gets a new one.
    void Assign(std::vector<PropertyBag> rows);

    // ModifyRecipients: replaces all (flags 0), adds, replaces by PR_ROWID, or removes by PR_ROWID. A row
    // that's to be removed and isn't there is passed over. What's added gets a new PR_ROWID.
    //
    // S_OK; MAPI_E_INVALID_PARAMETER: a row to be replaced isn't there, or a value is malformed;
    // MAPI_E_UNKNOWN_FLAGS; E_OUTOFMEMORY. Nothing changed after a failure.
    [[nodiscard]] HRESULT Modify(ULONG flags, const ADRLIST& changes) noexcept;

    const std::vector<PropertyBag>& rows() const noexcept { return rows_; }

    // The display names of all recipients of one kind (MAPI_TO...), separated by "; ".
    OleString DisplayList(ULONG recipientType, ULONG codePage) const;

private:
    HRESULT Append(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows);
    static HRESULT Replace(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows);
    static void Remove(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows);

    std::vector<PropertyBag> rows_;
    LONG nextId_ = 0;
};

// Rows as an address list for ModifyRecipients, with the types that the values are kept in.
class AddressList {
public:
    AddressList() noexcept = default;
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;
    ~AddressList() { FreePadrlist(list_); }

    [[nodiscard]] HRESULT Make(const std::vector<PropertyBag>& rows) noexcept;
    LPADRLIST Get() const noexcept { return list_; }

private:
    LPADRLIST list_ = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_RECIPIENTS_H_
