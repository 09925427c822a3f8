// host/mirror/mirror_folder.h: a folder of the mailbox, as a mirror reads and writes it.
#ifndef QUORVANE_HOST_MIRROR_MIRROR_FOLDER_H_
#define QUORVANE_HOST_MIRROR_MIRROR_FOLDER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host/mail/mail_bytes.h"
#include "host/mailbox/trash.h"
#include "host/mirror/mirror_records.h"
#include "host/sharing/known_mail.h"
#include "host/store/profile.h"

namespace quorvane::host {

// What is done here is a change of the user's, like any other. For one thread. Methods throw a HostError.
class MirrorFolder {
public:
    // session, trash: outlive it. Throws where the folder is gone.
    MirrorFolder(const MailSession& session, Trash& trash, const Mirror& mirror, std::string user);

    std::vector<MailItem> Items() const;

    // Makes an item of a mail with these marks, and keeps its bytes. Where an item that isn't in a pair yet
    // is the same mail, that one is found instead, with the marks that it has.
    //
    // isFree  whether an item, by its entry identifier, is in no pair; empty: none is.
    // It is on the disk with the next IMsgStore::SaveChanges.
    struct Imported {
        MailItem item;
        bool isFound = false;
    };
    Imported Import(const MailBytes& bytes, Marks marks,
                    const std::function<bool(const std::string&)>& isFree);
    // From now on items are found that came since. Called before the first import of several.
    void Refresh() { known_.reset(); }
    // An item says what a mail says now, and has its bytes; gives its new time.
    std::uint64_t Update(const std::string& id, const MailBytes& bytes) const;
    // Writes an item as the mail that it is. False where there is no such item any more.
    bool Export(const std::string& id, std::ostream& out) const;
    // Puts an item into the trash, and deletes it. `digest`: of its mail.
    void Delete(const std::string& id, const std::string& digest) const;
    void MoveTo(const MirrorFolder& target, const std::string& id) const;
    // When an item was changed last; 0 where there is none.
    std::uint64_t TimeOfItem(const std::string& id) const;

private:
    ComPtr<IMessage> NewMessage(const MailBytes& bytes, Marks marks) const;

    const MailSession& session_;
    Trash& trash_;
    const Mirror mirror_;
    const std::string user_;
    ComPtr<IMAPIFolder> folder_;
    std::unique_ptr<KnownMail> known_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MIRROR_FOLDER_H_
