// host/mailbox/user_settings.h: what a process takes for the settings of its user: those of one mailbox.
//
// The engine and the message store read a user's registry, temporary directory and application data at each
// use; the MAPI profile stands in that registry. A mailbox has all of them for itself, so that any number of
// mailboxes work side by side, and a process serves one mailbox at a time. docs/mailbox.md tells where they
// are.
#ifndef QUORVANE_HOST_MAILBOX_USER_SETTINGS_H_
#define QUORVANE_HOST_MAILBOX_USER_SETTINGS_H_

namespace quorvane::host {

class Mailbox;

// From now on the process works with the settings of this mailbox. Throws a HostError.
void SelectSettings(const Mailbox& mailbox);

// Of the selected mailbox: whether its settings are there, and made for it where it lies now; and makes them,
// the profile apart. A mailbox that was moved, or made on another system, has none yet. One process at a time
// makes them. Throw a HostError.
bool AreSettingsMade(const Mailbox& mailbox);
void MakeSettings(const Mailbox& mailbox);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_USER_SETTINGS_H_
