// A host in C++: shares the folder "Notes" of the mailbox in the working directory, puts a mail into it, and
// names the package that the engine makes of it.
//
//   typed_host ID     ID: what all members of the folder call it
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include "notes_folder.h"
#include "quorvane3/quorvane3.h"

using namespace quorvane;

namespace {

// What the engine asks and tells; called on its own threads.
class Host final : public ExtHandler {
public:
    HRESULT OnItemAdded(IItem* item, bool& ignore) override
    {
        std::string id;
        Check(ReadText(*item, &IItem::get_ID, id), "read an item");
        std::cout << "added " << id << std::endl;
        ignore = false;  // let the engine send it
        return S_OK;
    }
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(Widen(std::filesystem::absolute("sharing.db").string()));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("typed_host"));
        return S_OK;
    }
};

// Names the packages; how many there are.
int ListPackages(ISession2& session)
{
    ComPtr<IStorageFiles> packages;
    Check(session.get_StorageFiles(packages.Put()), "list the packages");
    int count = 0;
    Check(ForEach<IStorageFile>(*packages.Get(),
                                [&](IStorageFile& package) {
                                    std::string path;
                                    Check(ReadText(package, &IStorageFile::get_Path, path), "read a package");
                                    std::cout << "package " << path << std::endl;
                                    ++count;
                                    return S_OK;
                                }),
          "list the packages");
    return count;
}

void Run(const std::string& id)
{
    const NotesFolder notes;
    Host host;
    HostSession session;
    Check(session.Logon(host), "log on to the engine");
    ComPtr<IFolders> folders;
    ComPtr<IFolder> folder;
    Check(session->get_Folders(folders.Put()), "list the shared folders");
    Check(folders->Add(notes.EntryId().Get(), notes.StoreId().Get(), Variant::Text(FromUtf8(id)).Raw(),
                       Variant::Missing().Raw(), folder.Put()),
          "share the folder");
    Check(session->ResumeJobs(qv_rs_Both), "resume the unfinished packages");
    notes.AddMail("Hello");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (ListPackages(*session.Get()) == 0) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("no package came");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        Run(argc > 1 ? argv[1] : "notes");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "typed_host: " << error.what() << '\n';
        return 1;
    }
}
