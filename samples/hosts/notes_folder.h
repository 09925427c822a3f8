// samples/hosts/notes_folder.h: the mail side of both C++ hosts: a folder of the default message store, and a
// mail in it.
#ifndef QUORVANE_SAMPLES_HOSTS_NOTES_FOLDER_H_
#define QUORVANE_SAMPLES_HOSTS_NOTES_FOLDER_H_

#include <cstdio>
#include <stdexcept>
#include <string>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"
#include "quorvane3/mapi_helpers.h"

// Throws what a step failed with.
inline void Check(HRESULT hr, const std::string& step)
{
    if (SUCCEEDED(hr))
        return;
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    throw std::runtime_error("cannot " + step + ": " + code);
}

// The folder "Notes", made where it is missing, and what the engine knows it by. Throws std::runtime_error.
class NotesFolder {
public:
    NotesFolder()
    {
        Check(mapi_.Result(), "start MAPI");
        Check(quorvane::LogonToMapi(session_), "log on to the mailbox");
        Check(quorvane::OpenDefaultStore(*session_.Get(), store_), "open the message store");
        quorvane::MapiMemory<SPropValue> top;
        Check(HrGetOneProp(store_.Get(), PR_IPM_SUBTREE_ENTRYID, top.Put()), "find the top folder");
        const SBinary& id = top->Value.bin;
        ULONG type = 0;
        quorvane::ComPtr<IUnknown> object;
        Check(store_->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_MODIFY, &type,
                                object.Put()),
              "open the top folder");
        quorvane::ComPtr<IMAPIFolder> parent;
        Check(object.As(parent), "open the top folder");
        quorvane::OleString name = OLESTR("Notes");
        Check(parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr,
                                   MAPI_UNICODE | OPEN_IF_EXISTS, folder_.Put()),
              "open the folder");
        Check(quorvane::HexProperty(*folder_.Get(), PR_ENTRYID, entryId_), "read the folder");
        Check(quorvane::HexProperty(*folder_.Get(), PR_STORE_ENTRYID, storeId_), "read the folder");
    }

    const quorvane::Bstr& EntryId() const noexcept { return entryId_; }
    const quorvane::Bstr& StoreId() const noexcept { return storeId_; }

    void AddMail(std::string subject) const
    {
        std::string messageClass = "IPM.Note";
        SPropValue values[2] = {};
        values[0].ulPropTag = PR_SUBJECT_A;
        values[0].Value.lpszA = subject.data();
        values[1].ulPropTag = PR_MESSAGE_CLASS_A;
        values[1].Value.lpszA = messageClass.data();
        quorvane::ComPtr<IMessage> message;
        Check(folder_->CreateMessage(nullptr, 0, message.Put()), "make a mail");
        Check(message->SetProps(2, values, nullptr), "write a mail");
        Check(message->SaveChanges(0), "save a mail");
    }

private:
    quorvane::MapiScope mapi_;
    quorvane::ComPtr<IMAPISession> session_;
    quorvane::ComPtr<IMsgStore> store_;
    quorvane::ComPtr<IMAPIFolder> folder_;
    quorvane::Bstr entryId_;
    quorvane::Bstr storeId_;
};

#endif  // QUORVANE_SAMPLES_HOSTS_NOTES_FOLDER_H_
