#include "host/commands/mail_format.h"
#include "host/mime/export_mail.h"
#include "host/mime/import_mime.h"

namespace quorvane::host {

bool KnowsMime() noexcept
{
    return true;
}

HRESULT ImportMail(const FoundMail& mail, bool keepOriginal, IMessage& message)
{
    return ImportMime(mail.bytes, ImportOptions{mail.read, keepOriginal ? &mail.Original() : nullptr},
                      message);
}

HRESULT ExportMailOf(IMAPIFolder& folder, IMessage& message, std::ostream& out)
{
    return ExportMail(
        message, [&](IMessage** scratch) { return folder.CreateMessage(nullptr, 0, scratch); }, out);
}

}  // namespace quorvane::host
