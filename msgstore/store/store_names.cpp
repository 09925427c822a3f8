#include "msgstore/store/store_names.h"

#include <cstring>

namespace quorvane {
namespace {

constexpr std::string_view kColumns = "SELECT id, property_set, number, text FROM property_name";

ObjectGuid BytesOf(const GUID& guid) noexcept
{
    ObjectGuid bytes;
    std::memcpy(bytes.data(), &guid, bytes.size());
    return bytes;
}

// Text goes into the file as UTF-16 units, so that every name comes back as it was given.
Bytes BytesOf(OleStringView text)
{
    Bytes bytes(text.size() * sizeof(OLECHAR));
    if (!bytes.empty())
        std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

HRESULT ReadName(const SqliteRows& row, PropertyName& name)
{
    const ByteView set = row.Bytes(1);
    const ByteView text = row.Bytes(3);
    if (set.size() != sizeof(GUID) || text.size() % sizeof(OLECHAR) != 0)
        return MAPI_E_CORRUPT_STORE;
    std::memcpy(&name.set, set.data(), sizeof(GUID));
    name.kind = row.IsNull(2) ? MNID_STRING : MNID_ID;
    name.number = static_cast<LONG>(row.Int64(2));
    name.text.resize(text.size() / sizeof(OLECHAR));
    if (!text.empty())
        std::memcpy(name.text.data(), text.data(), text.size());
    return S_OK;
}

HRESULT FindId(SqliteConnection& connection, const PropertyName& name, ULONG& id)
{
    const ObjectGuid set = BytesOf(name.set);
    SqliteRows rows = name.kind == MNID_ID
                          ? connection.Query("SELECT id FROM property_name WHERE property_set=? AND number=?",
                                             set, name.number)
                          : connection.Query("SELECT id FROM property_name WHERE property_set=? AND text=?",
                                             set, BytesOf(name.text));
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_NOT_FOUND;
    id = static_cast<ULONG>(rows.Int64(0));
    return S_OK;
}

HRESULT InsertName(SqliteConnection& connection, const PropertyName& name, ULONG& id)
{
    SqliteRows last = connection.Query("SELECT max(id) FROM property_name");
    std::int64_t next = kFirstNamedId;
    if (last.Next() && !last.IsNull(0))
        next = last.Int64(0) + 1;
    QV_RETURN_IF_FAILED(last.Result());
    if (next > kLastNamedId)
        return MAPI_E_NOT_ENOUGH_RESOURCES;
    id = static_cast<ULONG>(next);
    if (name.kind == MNID_ID)
        return connection.Run("INSERT INTO property_name (id, property_set, number) VALUES (?, ?, ?)", next,
                              BytesOf(name.set), name.number);
    return connection.Run("INSERT INTO property_name (id, property_set, text) VALUES (?, ?, ?)", next,
                          BytesOf(name.set), BytesOf(name.text));
}

}  // namespace

HRESULT StoreNames::NameOf(ULONG id, PropertyName& name) noexcept
{
    return Guarded([&] {
        {
            const MutexLock lock(lock_);
            if (const auto found = byId_.find(id); found != byId_.end()) {
                name = found->second;
                return S_OK;
            }
        }
        QV_RETURN_IF_FAILED(core_.Read([&](SqliteConnection& connection) {
            SqliteRows rows = connection.Query(std::string(kColumns) + " WHERE id=?", id);
            if (!rows.Next())
                return FAILED(rows.Result()) ? rows.Result() : MAPI_E_NOT_FOUND;
            return ReadName(rows, name);
        }));
        Remember(id, name);
        return S_OK;
    });
}

HRESULT StoreNames::IdOf(const PropertyName& name, bool create, ULONG& id) noexcept
{
    return Guarded([&] {
        if (FindCached(name, id))
            return S_OK;
        const HRESULT found =
            core_.Read([&](SqliteConnection& connection) { return FindId(connection, name, id); });
        if (found == MAPI_E_NOT_FOUND && create) {
            QV_RETURN_IF_FAILED(Create(name, id));
        } else if (FAILED(found)) {
            return found;
        }
        Remember(id, name);
        return S_OK;
    });
}

HRESULT StoreNames::Create(const PropertyName& name, ULONG& id)
{
    return core_.Write(Durability::Deferred, [&](SqliteConnection& connection) {
        // Someone else may have come first.
        const HRESULT found = FindId(connection, name, id);
        return found == MAPI_E_NOT_FOUND ? InsertName(connection, name, id) : found;
    });
}

HRESULT StoreNames::All(std::vector<std::pair<ULONG, PropertyName>>& entries) noexcept
{
    return Guarded([&] {
        entries.clear();
        return core_.Read([&](SqliteConnection& connection) {
            SqliteRows rows = connection.Query(std::string(kColumns) + " ORDER BY id");
            while (rows.Next()) {
                PropertyName name;
                QV_RETURN_IF_FAILED(ReadName(rows, name));
                entries.emplace_back(static_cast<ULONG>(rows.Int64(0)), std::move(name));
            }
            return rows.Result();
        });
    });
}

GUID StoreNames::Signature() const noexcept
{
    GUID guid;
    std::memcpy(&guid, core_.Guid().data(), sizeof(guid));
    return guid;
}

bool StoreNames::FindCached(const PropertyName& name, ULONG& id)
{
    const MutexLock lock(lock_);
    for (const auto& [known, itsName] : byId_) {
        if (itsName == name) {
            id = known;
            return true;
        }
    }
    return false;
}

void StoreNames::Remember(ULONG id, const PropertyName& name)
{
    const MutexLock lock(lock_);
    byId_.emplace(id, name);
}

}  // namespace quorvane
