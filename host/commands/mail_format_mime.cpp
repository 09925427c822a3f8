#include "host/commands/mail_format.h"
#include "host/mime/export_mime.h"
#include "host/mime/import_mime.h"

namespace quorvane::host {

bool KnowsMime() noexcept
{
    return true;
}

HRESULT ImportMail(const FoundMail& mail, IMessage& message)
{
    return ImportMime(mail.bytes, ImportOptions{mail.read}, message);
}

HRESULT ExportMail(IMessage& message, std::ostream& out)
{
    return ExportMime(message, out);
}

}  // namespace quorvane::host
