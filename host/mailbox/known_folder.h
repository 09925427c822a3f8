// host/mailbox/known_folder.h: what the records say of a folder whose membership is known.
#ifndef QUORVANE_HOST_MAILBOX_KNOWN_FOLDER_H_
#define QUORVANE_HOST_MAILBOX_KNOWN_FOLDER_H_

#include <cstdint>
#include <string>

namespace quorvane::host {

// A folder whose membership this mailbox knows.
struct KnownFolder {
    enum class State {
        kInvited = 0,   // somebody shares it with this mailbox, and nobody has decided yet
        kHere = 1,      // it is shared here
        kDeclined = 2,  // by this mailbox
        kLeft = 3,      // by this mailbox
        kRemoved = 4,   // this mailbox, by the founder
    };
    std::string founding;  // 64 hexadecimal digits
    std::string folderId;
    State state = State::kInvited;
    std::string name;     // its path at the one who invited, or here
    std::string inviter;  // the id of the device that told of it
    std::string target;   // the path that an acceptance has begun to make a folder at
    std::uint64_t since = 0;
    std::string outer{};  // the founding of the folder that its founder put it into, by his word; often empty
    bool follows = false;  // what its founder puts into it is accepted by itself

    // What a user names it by.
    std::string Id() const { return founding.substr(0, 12); }
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_KNOWN_FOLDER_H_
