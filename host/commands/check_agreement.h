// host/commands/check_agreement.h: whether the message store, the sharing database, the hash files and the
// program's records tell the same of the items of a mailbox's shared folders.
//
// What a run brings about by itself is no fault: a message that nobody has a row of is sent, and of a row
// whose message was deleted here the others are told. What no run would put right, or would take for
// something that nobody did, is one:
//
//   lost-message  a row, and a record that it is whole here, of a message that is gone and that nobody has
//                 deleted: the next run would delete it everywhere. Mended: it is forgotten here, and the
//                 other members are asked for it.
//   lost-row      a record of an item that is whole here, without a row. Mended: where its message is there
//                 with the time and the content that the record tells, it gets the row; else the other
//                 members are asked for it.
//   hash          a record of a hash file for a message that has neither a row nor is there, or bytes behind
//                 the last whole record. Mended: they go.
#ifndef QUORVANE_HOST_COMMANDS_CHECK_AGREEMENT_H_
#define QUORVANE_HOST_COMMANDS_CHECK_AGREEMENT_H_

#include "host/commands/check_report.h"
#include "host/store/profile.h"

namespace quorvane::host {

// Looks at a mailbox that no run is at work on, and mends what it finds where the mender may. The number of
// rows of messages that were deleted here, which the next run tells of. Throws a HostError where a database
// can't be read.
std::size_t CheckAgreement(const Mailbox& mailbox, const MailSession& session, CheckReport& report,
                           Mender& mender);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_CHECK_AGREEMENT_H_
