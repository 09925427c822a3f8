// host/sharing/sender.h: sends items through the engine that no callback of the engine asked for.
#ifndef QUORVANE_HOST_SHARING_SENDER_H_
#define QUORVANE_HOST_SHARING_SENDER_H_

#include <cstdint>
#include <string>

#include "host/sharing/addin.h"

namespace quorvane::host {

// A stream without bytes: the form of an item that has no message.
Variant EmptyStream();

// For the run's thread alone. Methods throw a HostError.
class Sender {
public:
    Sender(Addin& addin, const Addin::Parts& parts, const EngineSession& engine) noexcept
        : addin_(addin), parts_(parts), engine_(engine)
    {}

    // Sends a message of a shared folder in its present state. One that the engine has no row for gets a row
    // and a sharing ID; one that changed since it was last sent gets a version. False when the message is
    // gone.
    //
    // recipients  the folder's entry identifier, for all members, or one member's (MemberRecipients).
    bool SendItem(const Share& share, const std::string& entryId, const std::string& recipients);
    // The same to all members, unless its content is as it was sent: then it passes for sent.
    void SendChange(const Share& share, const std::string& entryId);

    // Sends a deletion of an item whose message is gone to all members, and forgets its row.
    void SendDeletion(const Share& share, const std::string& id);
    // Sends a deletion that is known to others already, or what is known of an item whose content isn't here.
    void SendDeletion(const Share& share, const std::string& id, const std::string& recipients);

    // Makes a message that differs from its row, or has none, pass for sent as it is.
    void TakeForSent(const Share& share, const std::string& entryId);

private:
    ItemRecord RecordOf(const Share& share, const SharingRow& row, IMessage& message) const;
    bool Send(const Share& share, const std::string& entryId, const std::string& recipients, bool evenIfSame);
    void Pack(const Share& share, const std::string& entryId, IMessage& message, qv_Action action,
              const ItemRecord& record, const std::string& recipients);
    void PackDeletion(const Share& share, const ItemRecord& record, const std::string& recipients);
    SharingRow EnsureRow(const Share& share, const std::string& entryId);
    ComPtr<IFolder> EngineFolder(const Share& share) const;

    Addin& addin_;
    Addin::Parts parts_;
    const EngineSession& engine_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_SENDER_H_
