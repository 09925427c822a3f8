#include "mailbox.h"

#include <cstdlib>

#include "error.h"

using namespace quorvane;

void UseMailbox(const std::filesystem::path& directory)
{
    setenv("XDG_CONFIG_HOME", (directory / "settings").c_str(), 1);
    setenv("XDG_DATA_HOME", (directory / "logs").c_str(), 1);
    setenv("TMPDIR", (directory / "packages").c_str(), 1);
}

Mailbox::Mailbox()
{
    Check(mapi_.Result(), "start MAPI");
    Check(LogonToMapi(session_), "log on to the mailbox");
    Check(OpenDefaultStore(*session_.Get(), store_), "open the message store");
}

ComPtr<IMAPIFolder> Mailbox::OpenFolder(const std::string& name) const
{
    MapiMemory<SPropValue> top;
    Check(HrGetOneProp(store_.Get(), PR_IPM_SUBTREE_ENTRYID, top.Put()), "find the top folder");
    const SBinary& id = top->Value.bin;
    ULONG type = 0;
    ComPtr<IUnknown> object;
    Check(store_->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_MODIFY, &type,
                            object.Put()),
          "open the top folder");
    ComPtr<IMAPIFolder> parent;
    Check(object.As(parent), "open the top folder");
    OleString wide = FromUtf8(name);
    ComPtr<IMAPIFolder> folder;
    Check(parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(wide.data()), nullptr, nullptr,
                               MAPI_UNICODE | OPEN_IF_EXISTS, folder.Put()),
          "open the folder " + name);
    return folder;
}

void AddMessage(IMAPIFolder& folder, const std::string& subject)
{
    std::string text = subject;
    std::string messageClass = "IPM.Note";
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_SUBJECT_A;
    values[0].Value.lpszA = text.data();
    values[1].ulPropTag = PR_MESSAGE_CLASS_A;
    values[1].Value.lpszA = messageClass.data();
    ComPtr<IMessage> message;
    Check(folder.CreateMessage(nullptr, 0, message.Put()), "make a message");
    Check(message->SetProps(2, values, nullptr), "write a message");
    Check(message->SaveChanges(0), "save a message");
}
