// msgstore/imsg/storage_folder.h: the storages of one message, opened once each and shared.
#ifndef QUORVANE_MSGSTORE_IMSG_STORAGE_FOLDER_H_
#define QUORVANE_MSGSTORE_IMSG_STORAGE_FOLDER_H_

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "msgstore/props/large_value.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// One storage among those of a message: the message's own, an attachment's, an embedded message's...
// A storage may be open only once at a time, so a folder keeps track of its children that are open, and
// all who ask for one share it. All folders of one message have one lock, so that any thread may call.
class StorageFolder : public std::enable_shared_from_this<StorageFolder> {
public:
    struct Element {
        OleString name;
        bool isStorage = false;
        std::uint64_t size = 0;
    };

    // The outermost folder. `writable`: the storage was opened for writing.
    StorageFolder(ComPtr<IStorage> storage, bool writable);
    StorageFolder(StorageFolder* parent, ComPtr<IStorage> storage);

    // True for the caller's storage, false for those inside it.
    bool IsOutermost() const noexcept { return !parent_; }
    bool IsWritable() const noexcept { return writable_; }
    std::recursive_mutex& Lock() const noexcept { return *mutex_; }

    // All elements. MAPI_E_TOO_BIG: more than a message can have.
    [[nodiscard]] HRESULT List(std::vector<Element>& elements);
    // STG_E_FILENOTFOUND: there's no such storage.
    [[nodiscard]] HRESULT OpenFolder(const OleString& name, std::shared_ptr<StorageFolder>& folder);
    // Makes a storage that isn't there.
    [[nodiscard]] HRESULT CreateFolder(const OleString& name, std::shared_ptr<StorageFolder>& folder);

    // Reads a stream whole. MAPI_E_TOO_BIG: it's above `limit` bytes.
    [[nodiscard]] HRESULT ReadStream(const OleString& name, std::uint64_t limit, Bytes& bytes);
    [[nodiscard]] HRESULT ReadStreamAt(const OleString& name, std::uint64_t offset, void* buffer, ULONG count,
                                       ULONG& read);
    // Writes a stream whole. With `replaces` one of that name is there, and keeps its content until the new
    // one is complete; without, there's none.
    [[nodiscard]] HRESULT WriteStream(const OleString& name, const Bytes& bytes, bool replaces);
    [[nodiscard]] HRESULT WriteStream(const OleString& name, LargeValue& value, bool replaces);

    // Removes an element. Folders inside it that are open fail from now on with MAPI_E_OBJECT_CHANGED.
    [[nodiscard]] HRESULT Destroy(const OleString& name);
    // Renames an element that isn't open as a folder.
    [[nodiscard]] HRESULT Rename(const OleString& name, const OleString& newName);

    // The storage itself; null once it was removed.
    IStorage* Storage() const noexcept { return storage_.Get(); }

private:
    [[nodiscard]] HRESULT CheckOpen() const noexcept { return storage_ ? S_OK : MAPI_E_OBJECT_CHANGED; }
    [[nodiscard]] HRESULT OpenStream(const OleString& name, ComPtr<IStream>& stream);
    template <class Writer>
    [[nodiscard]] HRESULT Fill(const OleString& name, bool replaces, Writer&& write);
    void Forget(const OleString& name) noexcept;
    void Close() noexcept;

    const std::shared_ptr<StorageFolder> parent_;  // kept open as long as this one is
    const std::shared_ptr<std::recursive_mutex> mutex_;
    ComPtr<IStorage> storage_;
    const bool writable_;
    struct Reading {
        OleString name;
        ComPtr<IStream> stream;
        std::uint64_t size = 0;
    } reading_;  // the stream that is being read piece by piece, if there is one
    std::map<OleString, std::weak_ptr<StorageFolder>> open_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_STORAGE_FOLDER_H_
