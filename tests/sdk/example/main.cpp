// A small host of the sharing engine: shares one folder of a mailbox with one other member, says what it
// hears, and carries the packages.
//
//   sharing_host MAILBOX FOLDER ID OUT IN [SUBJECT...]
//
//   MAILBOX     a directory that `quorvane init` has made
//   FOLDER      the folder's name in the mailbox; it is made where it is missing
//   ID          what the folder is called among its members: the same for both
//   OUT, IN     directories: what goes to the other member, and what comes from there
//   SUBJECT...  messages to put into the folder once it is shared
//
// Runs until SIGINT or SIGTERM.
#include <csignal>
#include <ctime>
#include <iostream>
#include <mutex>

#include "error.h"
#include "mailbox.h"
#include "quorvane3/quorvane3.h"
#include "transport.h"

using namespace quorvane;

namespace {

// What the engine asks and tells, a line for each; called on the engine's threads.
class Reporter final : public ExtHandler {
public:
    explicit Reporter(std::filesystem::path database) : database_(std::move(database)) {}

    HRESULT OnItemAdded(IItem* item, bool&) override { return Say("added", *item); }
    HRESULT OnItemChanged(IItem* item, bool&) override { return Say("changed", *item); }
    HRESULT OnItemDeleted(IItem* item, bool&) override { return Say("deleted", *item); }
    HRESULT OnItemReceived(IItem* item, BSTR, bool&) override { return Say("received", *item); }
    HRESULT OnFolderReceived(IFolder* folder, BSTR tag) override
    {
        std::string name;
        Check(ReadText(*folder, &IFolder::get_CustomInfo, name), "read an announcement");
        Line("folder " + name + " from " + ToUtf8(ViewOf(tag)));
        return S_OK;
    }
    HRESULT OnPostprocess(BSTR, BSTR) override
    {
        Line("applied");
        return S_OK;
    }
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(Widen(database_.string()));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("sharing_host"));
        return S_OK;
    }

    void Line(const std::string& line)
    {
        const std::lock_guard lock(mutex_);
        std::cout << line << std::endl;
    }

private:
    // A deletion has no message to tell a subject of.
    HRESULT Say(const char* what, IItem& item)
    {
        qv_Action action = qv_ac_NoAction;
        Check(item.get_Action(&action), "read an item");
        Variant subject;
        if (action != qv_ac_Deleted)
            Check(item.GetProperty(Variant::ULong(PR_SUBJECT_A).Raw(), subject.Put()), "read a subject");
        Line(std::string(what) + (subject.Is(VT_BSTR) ? " " + ToUtf8(ViewOf(subject.Raw().bstrVal)) : ""));
        return S_OK;
    }

    std::filesystem::path database_;
    std::mutex mutex_;
};

sigset_t StopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Waits a moment; whether the program was asked to stop.
bool StopsWithin(long milliseconds)
{
    const sigset_t signals = StopSignals();
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

// Shares a folder under an ID, and tells the other member of it.
ComPtr<IFolder> Share(ISession2& session, IMAPIFolder& mapiFolder, const std::string& id,
                      const std::string& name)
{
    Bstr entryId;
    Bstr storeId;
    Check(HexProperty(mapiFolder, PR_ENTRYID, entryId), "read the folder");
    Check(HexProperty(mapiFolder, PR_STORE_ENTRYID, storeId), "read the folder");
    ComPtr<IFolders> folders;
    ComPtr<IFolder> folder;
    Check(session.get_Folders(folders.Put()), "list the shared folders");
    Check(folders->Add(entryId.Get(), storeId.Get(), Variant::Text(FromUtf8(id)).Raw(),
                       Variant::Missing().Raw(), folder.Put()),
          "share the folder " + name);
    Check(folder->put_CustomInfo(Bstr(FromUtf8(name)).Get()), "describe the folder");
    Check(folder->Send(Variant::Missing().Raw()), "announce the folder");
    return folder;
}

void Run(const std::vector<std::string>& arguments)
{
    const std::filesystem::path directory = std::filesystem::absolute(arguments[0]);
    const std::string& name = arguments[1];
    UseMailbox(directory);
    const Mailbox mailbox;
    const ComPtr<IMAPIFolder> mapiFolder = mailbox.OpenFolder(name);
    const Transport transport(directory.filename().string(), arguments[3], arguments[4], directory / "inbox");

    Reporter reporter(directory / "sharing.db");
    HostSession session;
    Check(session.Logon(reporter), "log on to the engine");
    const ComPtr<IFolder> folder = Share(*session.Get(), *mapiFolder.Get(), arguments[2], name);
    Check(session->ResumeJobs(qv_rs_Both), "resume the unfinished packages");
    reporter.Line("sharing " + name);

    for (size_t i = 5; i < arguments.size(); ++i)
        AddMessage(*mapiFolder.Get(), arguments[i]);
    while (!StopsWithin(100)) {
        if (transport.Deliver(*session.Get()) > 0)
            reporter.Line("delivered");
        transport.Receive(*session.Get());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const sigset_t signals = StopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        if (argc < 6) {
            std::cerr << "usage: sharing_host MAILBOX FOLDER ID OUT IN [SUBJECT...]\n";
            return 2;
        }
        Run({argv + 1, argv + argc});
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "sharing_host: " << error.what() << '\n';
        return 1;
    }
}
