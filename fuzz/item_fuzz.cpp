// An item of a package: its "Contents", alone or on the storage that holds its message too.
#include "fuzz/contents_fuzz.h"

namespace quorvane::fuzz {
namespace {

// As the receiving job loads it: with its folder and its message. The plain form takes whatever this takes.
void LoadPlaced(const BYTE* data, std::size_t size, bool isReadable)
{
    Mailbox& here = Mailbox::OfProcess();
    const ComPtr<IStorage> storage = OpenStorageOn(data, size);
    if (!storage)
        return;
    DatabaseSession database;
    Require(SUCCEEDED(here.session.Database().OpenSession(database)), "a session of the database");
    const ComPtr<CItem> item = MakeComObject<CItem>(&here.session);
    const HRESULT hr = item->Load(storage.Get(), database);
    Require(FAILED(hr) || isReadable, "an item is loaded whose contents can't be read");
}

void RunItem(const BYTE* data, std::size_t size)
{
    const ComPtr<CItem> item = MakeComObject<CItem>(nullptr);
    const HRESULT hr = LoadFrom(*item.Get(), data, size);
    if (hr == S_OK) {
        const ComPtr<CItem> again = MakeComObject<CItem>(nullptr);
        PassOn(*item.Get(), *again.Get());
        Require(AreEqual(item->m_bstrID, again->m_bstrID) &&
                    AreEqual(item->m_bstrFolderID, again->m_bstrFolderID) &&
                    AreEqual(item->m_bstrCustomInfo, again->m_bstrCustomInfo) &&
                    item->m_lAction == again->m_lAction,
                "an item is read as another one");
    }
    if (LooksLikeCompoundFile(data, size))
        LoadPlaced(data, size, hr == S_OK);
}

Bytes Saved(CItem& item)
{
    return MakeCompoundFile(
        [&](IStorage& storage) { Require(item.Save(&storage, FALSE) == S_OK, "an item's save"); });
}

std::vector<Bytes> MakeItemSeeds()
{
    Mailbox& here = Mailbox::OfProcess();
    const ComPtr<CItem> deletion = here.MakeItem(OLESTR("{A}"));
    deletion->m_bstrCustomInfo = Bstr(OLESTR("{\"stamp\": 1}"));
    deletion->m_lAction = qv_ac_Deleted;
    const ComPtr<CItem> mail = here.MakeItem(OLESTR("{B}"), {"Hello", "Body", {"ann", "bob"}, {"a.txt"}});
    mail->m_lAction = qv_ac_Added;
    const ComPtr<CItem> plain = here.MakeItem(OLESTR("{C}"), {"Hello", "", {}, {}});
    const ComPtr<IStream> alone = MakeStreamOn(nullptr, 0);
    Require(deletion->Save(alone.Get(), FALSE) == S_OK, "an item's contents");
    return {Saved(*deletion.Get()), Saved(*mail.Get()), Saved(*plain.Get()), ContentOfStream(*alone)};
}

}  // namespace

const Target kItem{"item", RunItem, MakeItemSeeds};

}  // namespace quorvane::fuzz
