// A folder's announcement in a package: its "Contents", alone or on its storage.
#include "engine/folders/folder.h"
#include "fuzz/contents_fuzz.h"

namespace quorvane::fuzz {
namespace {

Bstr IdOf(CFolder& folder)
{
    Bstr id;
    Require(folder.get_ID(id.Put()) == S_OK, "a folder's ID");
    return id;
}

Bstr CustomInfoOf(CFolder& folder)
{
    Bstr text;
    Require(folder.get_CustomInfo(text.Put()) == S_OK, "a folder's text");
    return text;
}

void RunFolder(const BYTE* data, std::size_t size)
{
    const ComPtr<CFolder> folder = MakeComObject<CFolder>(nullptr);
    if (LoadFrom(*folder.Get(), data, size) != S_OK)
        return;
    const ComPtr<CFolder> again = MakeComObject<CFolder>(nullptr);
    PassOn(*folder.Get(), *again.Get());
    Require(IdOf(*folder.Get()).View() == IdOf(*again.Get()).View() &&
                CustomInfoOf(*folder.Get()).View() == CustomInfoOf(*again.Get()).View(),
            "a folder is read as another one");
}

std::vector<Bytes> MakeFolderSeeds()
{
    const ComPtr<CFolder> folder = MakeComObject<CFolder>(&Mailbox::OfProcess().session);
    Require(folder->put_ID(Bstr(OLESTR("{NEW}")).Get()) == S_OK, "a folder's ID");
    const OleStringView text =
        OLESTR("{\"name\": \"Projects\", \"from\": \"alice\", \"members\": [\"alice\"]}");
    Require(folder->put_CustomInfo(Bstr(text).Get()) == S_OK, "a folder's text");
    const ComPtr<IStream> alone = MakeStreamOn(nullptr, 0);
    Require(folder->Save(alone.Get(), FALSE) == S_OK, "a folder's contents");
    return {MakeCompoundFile([&](IStorage& storage) {
                Require(folder->Save(&storage, FALSE) == S_OK, "a folder's save");
            }),
            ContentOfStream(*alone)};
}

}  // namespace

const Target kFolder{"folder", RunFolder, MakeFolderSeeds};

}  // namespace quorvane::fuzz
