#include "engine/persist/database.h"
#include "engine/persist/statements.h"

namespace quorvane {

HRESULT UpgradeDB(DataSource& source) noexcept
{
    const Traced traced{"CSession2::UpgradeDB"};
    if (!source.IsOpen())
        return kNotOpen;
    DatabaseSession session;
    HR_TRY(traced, source.OpenSession(session));
    HR_IGNORE(session.StartTransaction(), "without a transaction each statement commits by itself");
    HRESULT hr = session.Execute(statements::kAddVersionColumn);
    if (hr == S_OK)
        hr = session.Execute(statements::kMarkOldItems);
    if (FAILED(hr))
        HR_IGNORE(session.Abort(), "a file that has the column already is the normal case");
    else
        HR_IGNORE(session.Commit(), "the next logon tries again");
    return S_OK;
}

}  // namespace quorvane
