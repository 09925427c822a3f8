// platform/cfb/testing/series.h: for tests: operations on a compound file, with what each of them does to a
// model of its content.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_SERIES_H_
#define QUORVANE_PLATFORM_CFB_TESTING_SERIES_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/cfb/testing/test_support.h"
#include "platform/com/com_object.h"

namespace quorvane::cfb::test {

// Bytes that refuse a write or a read. Of the first write that they refuse the pages before the last come
// through.
class FaultyBytes final : public ComObject<FaultyBytes, ILockBytes> {
public:
    explicit FaultyBytes(Bytes content = {}) : m_store(std::move(content)) {}

    HRESULT STDMETHODCALLTYPE ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count, ULONG* read) override
    {
        std::size_t part = 0;
        *read = 0;
        if (m_reads && Refuses())
            return STG_E_READFAULT;
        const HRESULT hr = m_store.ReadAt(offset.QuadPart, buffer, count, &part);
        *read = static_cast<ULONG>(part);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count,
                                      ULONG* written) override
    {
        *written = 0;
        const bool first = !m_refused;
        if (!m_reads && Refuses()) {
            const std::uint64_t page = ByteStore::kAtomicPage;
            const std::uint64_t lastPage = (offset.QuadPart + count - 1) / page * page;
            if (first && lastPage > offset.QuadPart)
                (void)m_store.WriteAt(offset.QuadPart, buffer, lastPage - offset.QuadPart);
            return STG_E_MEDIUMFULL;
        }
        *written = count;
        return m_store.WriteAt(offset.QuadPart, buffer, count);
    }
    HRESULT STDMETHODCALLTYPE Flush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override
    {
        return !m_reads && Refuses() ? STG_E_MEDIUMFULL : m_store.SetSize(size.QuadPart);
    }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override
    {
        *stat = STATSTG{};
        stat->cbSize.QuadPart = m_store.bytes.size();
        return S_OK;
    }

    const Bytes& Content() const { return m_store.bytes; }
    // How often bytes were read or written, and how many.
    std::uint64_t Calls() const { return m_store.calls; }
    std::uint64_t Moved() const { return m_store.moved; }
    // The write with this number, counted from 0, is refused; `on`: those behind it too.
    void RefuseWrite(std::size_t write, bool on)
    {
        m_left = write;
        m_on = on;
        m_reads = false;
        m_refused = false;
    }
    void RefuseRead(std::size_t read)
    {
        m_left = read;
        m_on = false;
        m_reads = true;
        m_refused = false;
    }
    bool HasRefused() const { return m_refused; }
    // Notes all changes from now on.
    void KeepLog() { m_store.keepLog = true; }
    const std::vector<MemoryStore::Change>& Log() const { return m_store.log; }

private:
    bool Refuses()
    {
        if (!m_left)
            return false;
        if (*m_left > 0) {
            --*m_left;
            return false;
        }
        m_refused = true;
        if (!m_on)
            m_left.reset();
        return true;
    }

    MemoryStore m_store;
    std::optional<std::size_t> m_left;
    bool m_on = false;
    bool m_reads = false;
    bool m_refused = false;
};

// Where a compound file lies: in bytes of somebody's, or in a file.
enum class Road { kLockBytes, kFile };

// An open compound file, and a stream of it that is kept open.
struct Session {
    Session() = default;
    // One with that content, not open yet. A file is gone with it.
    explicit Session(Road road, const Bytes& content = {});
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    [[nodiscard]] HRESULT Create(Layout layout);
    [[nodiscard]] HRESULT Open(DWORD mode);
    // Of a file on Windows: while it isn't open.
    Bytes Content() const;
    void Close()
    {
        held.Reset();
        root.Reset();
    }
    // How often bytes were read or written, and how many.
    std::uint64_t Calls() const;
    std::uint64_t Moved() const;

    // As FaultyBytes' functions; of a file see FileFaults.
    void RefuseWrite(std::size_t write, bool on);
    void RefuseRead(std::size_t read);
    bool HasRefused() const;

    ComPtr<FaultyBytes> bytes;  // none of a file
    std::string file;
    ComPtr<IStorage> root;
    ComPtr<IStream> held;
};

// One operation that changes a file, and what it does to the file's content. `loose`: while it is under way
// the elements whose paths begin so may be anything between.
struct Step {
    std::string what;
    std::function<HRESULT(Session&)> run;
    std::function<void(Tree&)> apply;
    std::string loose = "?";
    bool replaces = false;  // these may be written anew, from their beginning on
};

// Elements are named by paths with '/' between the names. Those that are made replace what is there.
Step MakeStorage(const std::string& path);
Step MakeStream(const std::string& path);
Step Write(const std::string& path, std::size_t offset, const Bytes& content);
Step SetSize(const std::string& path, std::size_t size);
// Through the stream of the root that stays open over all steps.
Step WriteHeld(const std::string& name, std::size_t offset, const Bytes& content);
Step SetHeldSize(const std::string& name, std::size_t size);
Step Destroy(const std::string& path);
Step Rename(const std::string& path, const std::string& newName);
// All elements of a storage into another one, which isn't inside of it.
Step CopyTo(const std::string& from, const std::string& to);
// An element of the root into a storage.
Step Move(const std::string& name, const std::string& to);
Step SetClass(const std::string& path);
Step Commit();
// Closes the file and opens it again.
Step Reopen();

// An element with ten streams and a storage, as a sender adds it: in the place of an old one, if there is
// one.
Step MakeItem(const std::string& name, unsigned seed, std::size_t longest = 5'000);

// A change of a file between an open and a close.
struct FileChange {
    std::string what;
    std::vector<Step> steps;
    bool asOne;  // it is in the file as a whole or not at all
};

// The steps that make the file which these operations change, and the operations.
std::vector<Step> BeforeFileChanges();
std::vector<FileChange> FileChanges();

// Steps in any order, of any size, that a file with the content of `tree` allows; `tree` becomes what they
// leave.
std::vector<Step> RandomSeries(std::uint32_t seed, std::size_t count, Tree* tree);
// Steps that destroy all there is.
std::vector<Step> Emptying(std::uint32_t seed, const Tree& tree);

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_SERIES_H_
