// host/sharing/engine.h: the sharing engine, logged on for one mailbox.
#ifndef QUORVANE_HOST_SHARING_ENGINE_H_
#define QUORVANE_HOST_SHARING_ENGINE_H_

#include <string>
#include <string_view>

#include "host/base/errors.h"
#include "quorvane3/quorvane3.h"

namespace quorvane::host {

// Owns the library and its session. Made and destroyed on one thread, which is a free one of COM's meanwhile,
// unless MAPI made it an apartment: so MAPI is started first.
// Destruction waits for the engine's jobs. Throws a HostError.
class EngineSession {
public:
    EngineSession(ExtHandler& handler, const std::string& mailbox);
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;
    ~EngineSession();

    ISession2& Session() const noexcept { return *session_; }
    ComPtr<IFolders> Folders() const;
    ComPtr<IStorageFiles> StorageFiles() const;

    // The shared folder with this sharing ID; empty when there is none.
    ComPtr<IFolder> FindFolder(const std::string& folderId) const;

private:
    FreeThreadScope thread_;
    ComPtr<ExtCallback> callback_;
    ComPtr<ILibrary> library_;
    ComPtr<ISession2> session_;
};

// UTF-8 to BSTR, and the text that a getter gives.
inline Bstr BstrOf(std::string_view utf8)
{
    return Bstr(FromUtf8(utf8));
}
inline std::string Utf8Of(const Bstr& text)
{
    return ToUtf8(text.View());
}

// The text of a property: ReadText(*item, &IItem::get_ID). Throws a HostError.
template <class Interface>
std::string ReadText(Interface& object, HRESULT (STDMETHODCALLTYPE Interface::*getter)(BSTR*))
{
    Bstr text;
    Check((object.*getter)(text.Put()), "read a property of", "a shared object");
    return Utf8Of(text);
}

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_ENGINE_H_
