// platform/testing/form/test_form.h: a form that shows nothing and writes down what it is told.
#ifndef QUORVANE_PLATFORM_TESTING_FORM_TEST_FORM_H_
#define QUORVANE_PLATFORM_TESTING_FORM_TEST_FORM_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/com/com_object.h"
#include "platform/mapi/mapi.h"

namespace quorvane::test {

class TestForm;

// What a test says to the forms and hears of them. One thread at a time.
struct TestForms {
    // "Load <status> <flags>", "Advise", "DoVerb 0"..., of all forms in their order.
    std::vector<std::string> calls;
    // What a call gives: asked before it does anything, and a failure is returned at once. Empty: S_OK.
    std::function<HRESULT(TestForm&, const std::string& call)> answer;
    // The last form that was made, null when it has ended; and how many there are.
    TestForm* last = nullptr;
    int alive = 0;
};

// Lives by the rules of forms: what it is given in Load, SetViewContext and Advise it keeps until it closes.
// Where the variable QUORVANE_TEST_FORM_LOG names a file, the calls are appended to it, a line each; where
// there is a variable QUORVANE_TEST_FORM_CLOSES it closes as soon as it has opened.
class TestForm final : public ComObject<TestForm, IMAPIForm, IPersistMessage> {
public:
    explicit TestForm(TestForms& forms);
    ~TestForm();

    ComPtr<IMAPIMessageSite> site;
    ComPtr<IMessage> message;
    ComPtr<IMAPIViewContext> context;
    std::map<ULONG_PTR, ComPtr<IMAPIViewAdviseSink>> sinks;

    // What the user does who closes the form: tells the sinks, and lets go of everything.
    void Close();
    // The references on the form's object.
    ULONG Count() noexcept;

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE SetViewContext(LPMAPIVIEWCONTEXT view) override;
    HRESULT STDMETHODCALLTYPE GetViewContext(LPMAPIVIEWCONTEXT* view) override;
    HRESULT STDMETHODCALLTYPE ShutdownForm(ULONG saveOptions) override;
    HRESULT STDMETHODCALLTYPE DoVerb(LONG verb, LPMAPIVIEWCONTEXT view, ULONG_PTR parent,
                                     LPCRECT position) override;
    HRESULT STDMETHODCALLTYPE Advise(LPMAPIVIEWADVISESINK sink, ULONG_PTR* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG_PTR connection) override;

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;
    HRESULT STDMETHODCALLTYPE IsDirty() override;
    HRESULT STDMETHODCALLTYPE InitNew(LPMAPIMESSAGESITE place, LPMESSAGE text) override;
    HRESULT STDMETHODCALLTYPE Load(LPMAPIMESSAGESITE place, LPMESSAGE text, ULONG messageStatus,
                                   ULONG messageFlags) override;
    HRESULT STDMETHODCALLTYPE Save(LPMESSAGE text, ULONG sameAsLoad) override;
    HRESULT STDMETHODCALLTYPE SaveCompleted(LPMESSAGE text) override;
    HRESULT STDMETHODCALLTYPE HandsOffMessage() override;

private:
    HRESULT Note(const std::string& call);

    TestForms& forms_;
    ULONG_PTR nextConnection_ = ULONG_PTR{1} << 40;  // more than 32 bits hold
};

// The class of the form in the library qv_test_form.
extern const CLSID kTestFormClass;

// Of that library, which is loaded if it isn't: what the test says to its forms. Throws std::runtime_error.
TestForms& FormsOfLibrary();

// Makes the library's form the one for messages of a class and those below it, in the user's registry as it
// is at the moment. Throws std::runtime_error.
void RegisterTestForm(const std::string& messageClass);

// The path of a program that copies the one file that it is given to the path in the variable
// QUORVANE_TEST_VIEWER_COPY.
std::string TestViewer();

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_FORM_TEST_FORM_H_
