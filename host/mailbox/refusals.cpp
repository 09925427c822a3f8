#include "host/mailbox/refusals.h"

#include "host/base/output.h"
#include "host/exchange/error.h"
#include "host/store/properties.h"

namespace quorvane::host {

void Refusals::Note(const exchange::DeviceId& device, const std::string& reason)
{
    Statement(
        database_,
        "INSERT INTO refusal (device, reason, count, since) SELECT ?1, ?2, 1, ?3 WHERE EXISTS (SELECT 1 FROM "
        "refusal WHERE device = ?1 AND reason = ?2) OR (SELECT count(*) FROM refusal) < ?4 ON CONFLICT "
        "(device, reason) DO UPDATE SET count = count + 1")
        .Bind(1, TextOf(device))
        .Bind(2, reason)
        .Bind(3, static_cast<std::int64_t>(FileTimeNow()))
        .Bind(4, kMost)
        .Run();
}

std::vector<RefusalRecord> Refusals::All()
{
    Statement select(database_, "SELECT device, reason, count, since FROM refusal ORDER BY since");
    std::vector<RefusalRecord> refusals;
    while (select.Step())
        refusals.push_back({exchange::ParseDeviceId(select.Text(0)).value_or(exchange::DeviceId{}),
                            select.Text(1), static_cast<std::uint64_t>(select.Number(2)),
                            static_cast<std::uint64_t>(select.Number(3))});
    return refusals;
}

}  // namespace quorvane::host
