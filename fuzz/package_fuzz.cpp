// A whole package, through the engine's own job that receives it: host, sharing database and message store
// with it.
//
// Whatever the file says, the job ends; it takes the file and its row, or leaves both to the next start.
#include <filesystem>
#include <fstream>

#include "engine/folders/folder.h"
#include "engine/transfer/storage_file.h"
#include "engine/transfer/storage_processor.h"
#include "fuzz/mailbox.h"

namespace quorvane::fuzz {
namespace {

std::string Jobs(Mailbox& here)
{
    return here.session.Ask("SELECT count(*) FROM tblUnfinishedReceiveJob");
}

void RunPackage(const BYTE* data, std::size_t size)
{
    Mailbox& here = Mailbox::OfProcess();
    static const std::string path = here.directory.File("received.qvt");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (Jobs(here) == "0")
        here.session.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + path + "', 'tag')");
    Event stop;
    Require(stop.Create(false) == S_OK, "an event");

    const DWORD result =
        CStorageProcessor(Bstr(Widen(path)), Bstr(OLESTR("tag")), &here.session).ThreadProc(stop);

    Require(result == 0 || result == CStorageProcessor::kUndone, "a job ends with something else");
    Require(std::filesystem::exists(path) == (Jobs(here) == "1"), "of file and row one is left");
    Require(here.session.ItemSubmitEvent().IsSet(), "an item is still being applied");
    if (!here.session.host.Calls().empty())
        here.Reset();
}

// As another member's engine writes it.
class SentPackage {
public:
    SentPackage() : file_(MakeComObject<CStorageFile>(&Mailbox::OfProcess().session))
    {
        Require(file_->put_Recipients(Bstr(OLESTR("us")).Get()) == S_OK, "a package");
    }

    void Put(CItem& item) { Write(item, &CStorageFile::OpenItem, item.m_bstrID); }
    void Put(CFolder& folder) { Write(folder, &CStorageFile::OpenFolder, Bstr(OLESTR("{NEW}"))); }

    Bytes Take()
    {
        Bstr path;
        Require(file_->get_Path(path.Put()) == S_OK, "a package's path");
        std::ifstream in(Narrow(path.View()), std::ios::binary);
        Bytes bytes(std::istreambuf_iterator<char>(in), {});
        std::filesystem::remove(Narrow(path.View()));
        return bytes;
    }

private:
    template <class Persistent>
    void Write(Persistent& object, HRESULT (STDMETHODCALLTYPE CStorageFile::*open)(BSTR, VARIANT*),
               const Bstr& id)
    {
        Variant element;
        Require((file_.Get()->*open)(id.Get(), element.Put()) == S_OK, "a package's element");
        ComPtr<IStorage> storage;
        Require(SUCCEEDED(QueryFor(element.Raw().punkVal, storage)), "a package's element");
        Require(object.Save(storage.Get(), TRUE) == S_OK, "a package's element");
        storage.Reset();
        element = Variant();
        Require(file_->Unlock() == S_OK, "a package");
    }

    const ComPtr<CStorageFile> file_;
};

ComPtr<CItem> Mail(OleStringView id, const std::string& subject, qv_Action action)
{
    const ComPtr<CItem> item = Mailbox::OfProcess().MakeItem(id, {subject, "Body", {"ann"}, {"a.txt"}});
    item->m_lAction = action;
    return item;
}

ComPtr<CItem> Deletion(OleStringView id)
{
    const ComPtr<CItem> item = Mailbox::OfProcess().MakeItem(id);
    item->m_lAction = qv_ac_Deleted;
    return item;
}

std::vector<Bytes> MakePackageSeeds()
{
    SentPackage added;
    added.Put(*Mail(OLESTR("{B}"), "New", qv_ac_Added).Get());
    SentPackage changed;
    changed.Put(*Mail(OLESTR("{A}"), "Changed", qv_ac_Modified).Get());
    changed.Put(*Deletion(OLESTR("{C}")).Get());
    SentPackage announced;
    const ComPtr<CFolder> folder = MakeComObject<CFolder>(&Mailbox::OfProcess().session);
    Require(folder->put_ID(Bstr(OLESTR("{NEW}")).Get()) == S_OK, "a folder");
    announced.Put(*folder.Get());
    announced.Put(*Deletion(OLESTR("{A}")).Get());
    return {added.Take(), changed.Take(), announced.Take()};
}

}  // namespace

const Target kPackage{"package", RunPackage, MakePackageSeeds};

}  // namespace quorvane::fuzz
