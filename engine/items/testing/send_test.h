// items/testing/send_test.h: an item with a message, and a package that notes what is called.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_SEND_TEST_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_SEND_TEST_H_

#include <functional>
#include <string>
#include <vector>

#include "engine/items/package.h"
#include "engine/items/testing/mail_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/cfb/stg.h"

namespace quorvane::testing {

inline constexpr HRESULT kRefused = STG_E_LOCKVIOLATION;

// What was called, in order; the call of the name in `failing` fails.
struct PackageCalls {
    std::vector<std::string> made;
    std::string failing;

    HRESULT Make(const std::string& name)
    {
        made.push_back(name);
        return name == failing ? kRefused : S_OK;
    }
};

// A package with one element in memory.
class RecordingFile final : public ComObject<RecordingFile, DispatchImpl<IStorageFile>, IPackageElements> {
public:
    explicit RecordingFile(PackageCalls& calls) : calls_(calls) { EXPECT_EQ(memory_.Create(), S_OK); }

    // Empty when there is no element.
    ComPtr<IStorage> Element()
    {
        ComPtr<IStorage> element;
        memory_.storage->OpenStorage(OLESTR("element"), nullptr, kOpenMode, nullptr, 0, element.Put());
        return element;
    }

    HRESULT STDMETHODCALLTYPE get_Recipients(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Recipients(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Path(BSTR* path) override { return Bstr(OLESTR("path")).CopyTo(path); }
    HRESULT STDMETHODCALLTYPE put_Path(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFolder(BSTR, VARIANT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenItem(BSTR id, VARIANT* element) override
    {
        HR_TRY_QUIET(calls_.Make("OpenItem " + Narrow(ViewOf(id))));
        if (answersNoStorage) {
            *element = Number(7);
            return S_OK;
        }
        ComPtr<IStorage> made;
        HR_TRY_QUIET(memory_.storage->CreateStorage(OLESTR("element"), kCreateMode, 0, 0, made.Put()));
        element->vt = VT_UNKNOWN;
        element->punkVal = made.Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Delete() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Unlock() override { return calls_.Make("Unlock"); }
    HRESULT STDMETHODCALLTYPE Lock() override { return calls_.Make("Lock"); }
    HRESULT STDMETHODCALLTYPE DestroyFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DestroyItem(BSTR id) override
    {
        HR_TRY_QUIET(calls_.Make("DestroyItem " + Narrow(ViewOf(id))));
        return memory_.storage->DestroyElement(OLESTR("element"));
    }

    // The element is written into that one from now on.
    void Use(const ComPtr<IStorage>& storage) { memory_.storage = storage; }

    bool answersNoStorage = false;

private:
    PackageCalls& calls_;
    MemoryStorage memory_;
};

// The packages: one, or none until it is added.
class RecordingFiles final : public ComObject<RecordingFiles, DispatchImpl<IStorageFiles>> {
public:
    explicit RecordingFiles(PackageCalls& calls)
        : file(ComPtr<RecordingFile>::Attach(new RecordingFile(calls))), calls_(calls)
    {}

    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT index, VARIANT* found) override
    {
        HR_TRY_QUIET(calls_.Make("Item " + Narrow(ViewOf(index.bstrVal))));
        if (!isThere)
            return E_FAIL;
        return otherAnswer ? otherAnswer(found) : Variant::Dispatch(file.Get()).CopyTo(found);
    }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Add(BSTR recipients, IStorageFile** made) override
    {
        HR_TRY_QUIET(calls_.Make("Add " + Narrow(ViewOf(recipients))));
        isThere = true;
        return file.As(made);
    }
    HRESULT STDMETHODCALLTYPE Remove(VARIANT) override { return E_NOTIMPL; }

    ComPtr<RecordingFile> file;
    bool isThere = true;
    std::function<HRESULT(VARIANT*)> otherAnswer;

private:
    PackageCalls& calls_;
};

class SendTest : public MailTest {
protected:
    SendTest() { session.storageFiles = ComPtr<IStorageFiles>(files.Get()); }

    HRESULT Send(std::string* lines = nullptr)
    {
        HRESULT hr = E_FAIL;
        const std::string traced = TracedLines([&] { hr = item->Send(Bstr(OLESTR("ann")).Get()); });
        if (lines)
            *lines = traced;
        return hr;
    }

    // The failure is returned, and traced under the operation's name.
    void ExpectFailure(HRESULT expected)
    {
        std::string lines;
        EXPECT_EQ(Send(&lines), expected);
        EXPECT_NE(lines.find("CItem::Send("), std::string::npos) << lines;
        EXPECT_FALSE(files->file->Element());
    }

    PackageCalls calls;
    ComPtr<RecordingFiles> files = ComPtr<RecordingFiles>::Attach(new RecordingFiles(calls));
    ComPtr<CItem> item =
        MakeItem(OLESTR("{A}"), *MakeDetachedMessage({"Sent", "Body", {"ann", "bob"}, {"a.txt"}}));
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_SEND_TEST_H_
