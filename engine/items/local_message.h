// items/local_message.h: what both forms of Submit do to a message of the local store.
#ifndef QUORVANE_ENGINE_ITEMS_LOCAL_MESSAGE_H_
#define QUORVANE_ENGINE_ITEMS_LOCAL_MESSAGE_H_

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_memory.h"
#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// Opens the message of an entry identifier for writing.
//
// entryId  [in]   hexadecimal text. Empty, or no hexadecimal: nothing is found, with S_OK.
// local    [out]  empty when it isn't found.
//
// The result of OpenEntry, for callers that have nothing better to report.
HRESULT FindLocalMessage(IMsgStore& store, BSTR entryId, ComPtr<IMessage>& local) noexcept;

// Makes a message in a folder; it isn't in the store before it is saved. A folder that can't tell its name
// can't be used: its failure is returned.
[[nodiscard]] HRESULT CreateLocalMessage(IMAPIFolder& folder, ComPtr<IMessage>& local) noexcept;

// Deletes every property. A property that can't be deleted is traced under the caller's name and left.
// Failures are those of GetPropList.
[[nodiscard]] HRESULT DeleteAllProperties(const Traced& traced, IMessage& local) noexcept;

// Deletes one message of a folder. E_FAIL: it has no entry identifier.
class LocalMessageId {
public:
    [[nodiscard]] HRESULT Read(IMessage& local) noexcept;
    [[nodiscard]] HRESULT DeleteFrom(IMAPIFolder& folder) noexcept;

private:
    PropValue entryId_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_LOCAL_MESSAGE_H_
