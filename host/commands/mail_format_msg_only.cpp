#include "host/commands/mail_format.h"

namespace quorvane::host {

bool KnowsMime() noexcept
{
    return false;
}

HRESULT ImportMail(const FoundMail&, bool, IMessage&)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT ExportMailOf(IMAPIFolder&, IMessage&, std::ostream&)
{
    return MAPI_E_NO_SUPPORT;
}

}  // namespace quorvane::host
