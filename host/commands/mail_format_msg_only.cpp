#include "host/commands/mail_format.h"

namespace quorvane::host {

bool KnowsMime() noexcept
{
    return false;
}

HRESULT ImportMail(const FoundMail&, IMessage&)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT ExportMail(IMessage&, std::ostream&)
{
    return MAPI_E_NO_SUPPORT;
}

}  // namespace quorvane::host
