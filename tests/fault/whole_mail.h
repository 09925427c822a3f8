// tests/fault/whole_mail.h: mails that show whether they are whole: one letter is in every part of them.
#ifndef QUORVANE_TESTS_FAULT_WHOLE_MAIL_H_
#define QUORVANE_TESTS_FAULT_WHOLE_MAIL_H_

#include <string>

#include "quorvane3/mapi.h"

namespace quorvane::test {

// Puts the letter into every part, in place of what the message has: subject, a body and an attachment that
// are too large to stand among the other properties, two recipients, an embedded message. Doesn't save it.
void FillWhole(IMessage& message, char letter);

// The letter; in upper case when the message is read. '?' when its parts don't go together.
char LetterOf(IMessage& message);

// The letters of a folder's mails, sorted.
std::string LettersOf(IMAPIFolder& folder);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_FAULT_WHOLE_MAIL_H_
