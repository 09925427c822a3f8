// mailbox.h: a mailbox as `quorvane init` makes it, and a folder in it.
#ifndef SHARING_HOST_MAILBOX_H_
#define SHARING_HOST_MAILBOX_H_

#include <filesystem>
#include <string>

#include "quorvane3/mapi_helpers.h"

// Makes a mailbox the one that this process works on: the MAPI profile, the engine's settings and its
// packages are found through the environment. Before anything else.
void UseMailbox(const std::filesystem::path& directory);

// A mailbox's message store. Throws std::runtime_error.
class Mailbox {
public:
    Mailbox();

    // The folder of that name at the top; it is made where it is missing.
    quorvane::ComPtr<IMAPIFolder> OpenFolder(const std::string& name) const;

private:
    quorvane::MapiScope mapi_;
    quorvane::ComPtr<IMAPISession> session_;
    quorvane::ComPtr<IMsgStore> store_;
};

// Puts a new message into a folder.
void AddMessage(IMAPIFolder& folder, const std::string& subject);

#endif  // SHARING_HOST_MAILBOX_H_
