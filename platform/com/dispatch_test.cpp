#include "platform/com/dispatch.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/com/error_text.h"
#include "platform/com/safe_array.h"

namespace quorvane {

enum class Colour : LONG { None = 0, Red = 10, Green = 20 };

// {E7D14B0B-0C0B-4C55-9E63-9B0E4C1E2A01} and {...02}
constexpr IID kPartId = {0xE7D14B0B, 0x0C0B, 0x4C55, {0x9E, 0x63, 0x9B, 0x0E, 0x4C, 0x1E, 0x2A, 0x01}};
constexpr IID kMachineId = {0xE7D14B0B, 0x0C0B, 0x4C55, {0x9E, 0x63, 0x9B, 0x0E, 0x4C, 0x1E, 0x2A, 0x02}};

struct IPart : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Number(LONG* pVal) = 0;
};

struct IMachine : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) = 0;
    virtual HRESULT STDMETHODCALLTYPE Add(BSTR Name, VARIANT ID, VARIANT Progress, IPart** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Colour(Colour* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Colour(Colour newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Excluded(SAFEARRAY** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Excluded(SAFEARRAY** newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Raw(IUnknown* newVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Use(IPart* Part, ULONG Flags, double Weight) = 0;
    virtual HRESULT STDMETHODCALLTYPE Ask(VARIANT_BOOL* Ignore, BSTR* Text, LONG* Number, VARIANT* Any) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Name(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Fail(LONG Code, VARIANT_BOOL WithText) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsLocked(BSTR EntryID, VARIANT_BOOL* rVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Sum(SAFEARRAY* Values, LONG* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE Validate() = 0;
};

}  // namespace quorvane

QUORVANE_IID(quorvane::IPart, quorvane::kPartId);
QUORVANE_IID(quorvane::IMachine, quorvane::kMachineId);

namespace quorvane {

template <>
struct OperationsOf<IPart> {
    static constexpr Operation kTable[] = {Get<&IPart::get_Number>(1, OLESTR("Number"))};
};

template <>
struct OperationsOf<IMachine> {
    static constexpr Operation kTable[] = {
        Get<&IMachine::get__NewEnum>(DISPID_NEWENUM, OLESTR("_NewEnum")),
        Get<&IMachine::get_Item>(DISPID_VALUE, OLESTR("Item"), In(OLESTR("Index")), Result(OLESTR("pvar"))),
        Method<&IMachine::LockItem>(5, OLESTR("LockItem"), In(OLESTR("EntryID")), In(OLESTR("StoreID")),
                                    Optional(OLESTR("AutoUnlock"), VARIANT_TRUE)),
        Method<&IMachine::Add>(15, OLESTR("Add"), In(OLESTR("Name")), Optional(OLESTR("ID")),
                               Optional(OLESTR("Progress")), Result(OLESTR("pVal"))),
        Get<&IMachine::get_Colour>(13, OLESTR("Colour")),
        Put<&IMachine::put_Colour>(13, OLESTR("Colour")),
        Get<&IMachine::get_Excluded>(2, OLESTR("Excluded")),
        Put<&IMachine::put_Excluded>(2, OLESTR("Excluded")),
        Put<&IMachine::put_Raw>(3, OLESTR("Raw")),
        Method<&IMachine::Use>(4, OLESTR("Use"), In(OLESTR("Part")), In(OLESTR("Flags")),
                               Optional(OLESTR("Weight"), 3)),
        Method<&IMachine::Ask>(6, OLESTR("Ask"), InOut(OLESTR("Ignore")), InOut(OLESTR("Text")),
                               InOut(OLESTR("Number")), InOut(OLESTR("Any"))),
        Get<&IMachine::get_Name>(7, OLESTR("Name")),
        Method<&IMachine::Fail>(8, OLESTR("Fail"), In(OLESTR("Code")), In(OLESTR("WithText"))),
        Method<&IMachine::IsLocked>(9, OLESTR("IsLocked"), In(OLESTR("EntryID")), Result(OLESTR("rVal"))),
        Method<&IMachine::Sum>(10, OLESTR("Sum"), In(OLESTR("Values")), Result(OLESTR("pVal"))),
        Method<&IMachine::Validate>(11, OLESTR("Validate")).WithHelp(OLESTR("checks it")),
    };
};

namespace {

class CPart final : public ComObject<CPart, DispatchImpl<IPart>> {
public:
    HRESULT STDMETHODCALLTYPE get_Number(LONG* pVal) override
    {
        *pVal = 7;
        return S_OK;
    }
};

// Writes down what it was called with.
class CMachine final : public ComObject<CMachine, DispatchImpl<IMachine>> {
public:
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override
    {
        return MakeComObject<CPart>()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(pVal));
    }
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override
    {
        return VariantCopy(pvar, &Index);
    }
    HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) override
    {
        m_Called = OleString(ViewOf(EntryID)) + OLESTR("/") + OleString(ViewOf(StoreID));
        m_AutoUnlock = AutoUnlock;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Add(BSTR Name, VARIANT ID, VARIANT Progress, IPart** pVal) override
    {
        m_Called = ViewOf(Name);
        m_IdType = ID.vt;
        m_ProgressType = Progress.vt;
        *pVal = MakeComObject<CPart>().Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Colour(Colour* pVal) override
    {
        *pVal = m_Colour;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Colour(Colour newVal) override
    {
        m_Colour = newVal;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Excluded(SAFEARRAY** pVal) override { return m_Excluded.CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE put_Excluded(SAFEARRAY** newVal) override
    {
        // Takes the array away and leaves an empty one, as an [in,out] argument allows.
        m_Excluded = SafeArray::Attach(*newVal);
        *newVal = SafeArrayCreateVector(VT_VARIANT, 0, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Raw(IUnknown* newVal) override
    {
        m_pRaw = newVal;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Use(IPart* Part, ULONG Flags, double Weight) override
    {
        m_pRaw = Part;
        m_Flags = Flags;
        m_Weight = Weight;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Ask(VARIANT_BOOL* Ignore, BSTR* Text, LONG* Number, VARIANT* Any) override
    {
        *Ignore = static_cast<VARIANT_BOOL>(~*Ignore);
        *Number += 1;
        const Bstr longer(OleString(ViewOf(*Text)) + OLESTR("!"));
        SysReAllocString(Text, longer.Get());
        return VariantChangeType(Any, Any, 0, VT_BSTR);
    }
    HRESULT STDMETHODCALLTYPE get_Name(BSTR* pVal) override { return Bstr(OLESTR("machine")).CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE Fail(LONG Code, VARIANT_BOOL WithText) override
    {
        return WithText ? RaiseError(kMachineId, OLESTR("Machine"), OLESTR("it broke"), Code) : Code;
    }
    HRESULT STDMETHODCALLTYPE IsLocked(BSTR, VARIANT_BOOL* rVal) override
    {
        *rVal = VARIANT_TRUE;
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Sum(SAFEARRAY* Values, LONG* pVal) override
    {
        ArrayView<VARIANT> view;
        const HRESULT hr = view.Open(Values);
        for (const VARIANT& value : view)
            *pVal += value.lVal;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Validate() override { throw std::bad_alloc(); }

    OleString m_Called;
    VARIANT_BOOL m_AutoUnlock = 55;
    VARTYPE m_IdType = 0;
    VARTYPE m_ProgressType = 0;
    Colour m_Colour = Colour::None;
    SafeArray m_Excluded;
    ComPtr<IUnknown> m_pRaw;
    ULONG m_Flags = 0;
    double m_Weight = 0;
};

// Arguments as a caller lists them: from the last to the first, named ones in front.
class Call {
public:
    Call& Unnamed(Variant value)
    {
        values_.push_back(std::move(value));
        return *this;
    }
    Call& Named(DISPID name, Variant value)
    {
        values_.insert(values_.begin(), std::move(value));
        names_.insert(names_.begin(), name);
        return *this;
    }

    HRESULT Make(IDispatch* object, DISPID id, WORD flags)
    {
        raw.clear();
        for (const Variant& value : values_)
            raw.push_back(value.Raw());
        DISPPARAMS params{raw.data(), names_.data(), static_cast<UINT>(raw.size()),
                          static_cast<UINT>(names_.size())};
        return object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result.Put(), nullptr,
                              &argumentError);
    }

    Variant result;
    UINT argumentError = 77;
    std::vector<VARIANT> raw;

private:
    std::vector<Variant> values_;
    std::vector<DISPID> names_;
};

class DispatchTest : public testing::Test {
protected:
    DISPID IdOf(OleString name) const
    {
        LPOLESTR names[] = {name.data()};
        DISPID id = 0;
        return SUCCEEDED(machine->GetIDsOfNames(IID_NULL, names, 1, 0, &id)) ? id : DISPID_UNKNOWN;
    }

    const ComPtr<CMachine> machine = MakeComObject<CMachine>();
};

TEST_F(DispatchTest, TheObjectAnswersItsDualInterfaceAndIDispatch)
{
    ComPtr<IMachine> dual;
    ComPtr<IDispatch> dispatch;

    EXPECT_EQ(machine->QueryInterface(kMachineId, dual.PutVoid()), S_OK);
    EXPECT_EQ(dual.As(dispatch), S_OK);
    EXPECT_EQ(static_cast<IDispatch*>(dual.Get()), dispatch.Get());
}

TEST_F(DispatchTest, NamesAreFoundInAnyCase)
{
    EXPECT_EQ(IdOf(OLESTR("LOCKitem")), 5);
    EXPECT_EQ(IdOf(OLESTR("_NewEnum")), DISPID_NEWENUM);
    EXPECT_EQ(IdOf(OLESTR("LockItems")), DISPID_UNKNOWN);
    EXPECT_EQ(IdOf(OLESTR("Lock")), DISPID_UNKNOWN);
}

TEST_F(DispatchTest, ArgumentsAreFoundByNameAndUnknownOnesToldApart)
{
    OleString operation = OLESTR("Add");
    OleString progress = OLESTR("progress");
    OleString other = OLESTR("pVal");
    LPOLESTR names[] = {operation.data(), progress.data(), other.data()};
    DISPID ids[3] = {};

    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, names, 3, 0, ids), DISP_E_UNKNOWNNAME);

    EXPECT_EQ(ids[0], 15);
    EXPECT_EQ(ids[1], 2);
    EXPECT_EQ(ids[2], DISPID_UNKNOWN) << "the result is no argument";
    EXPECT_EQ(machine->GetIDsOfNames(IID_IStream, names, 1, 0, ids), DISP_E_UNKNOWNINTERFACE);
}

TEST_F(DispatchTest, ANameThatIsNullIsRefused)
{
    OleString operation = OLESTR("Add");
    LPOLESTR names[] = {operation.data(), nullptr};
    DISPID ids[2] = {};

    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, names, 2, 0, ids), E_INVALIDARG);
    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, names, 0, 0, ids), E_INVALIDARG);
    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, nullptr, 1, 0, ids), E_INVALIDARG);
    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, names, 1, 0, nullptr), E_INVALIDARG);
}

TEST_F(DispatchTest, TheArgumentsOfAnUnknownOperationAreUnknownToo)
{
    OleString operation = OLESTR("Ad");
    OleString argument = OLESTR("Name");
    LPOLESTR names[] = {operation.data(), argument.data()};
    DISPID ids[2] = {};

    EXPECT_EQ(machine->GetIDsOfNames(IID_NULL, names, 2, 0, ids), DISP_E_UNKNOWNNAME);

    EXPECT_EQ(ids[0], DISPID_UNKNOWN);
    EXPECT_EQ(ids[1], DISPID_UNKNOWN);
}

TEST_F(DispatchTest, ArgumentsComeFromTheLastToTheFirst)
{
    Call call;
    call.Unnamed(Variant::Bool(false))
        .Unnamed(Variant::Text(OLESTR("store")))
        .Unnamed(Variant::Text(OLESTR("entry")));

    EXPECT_EQ(call.Make(machine.Get(), 5, DISPATCH_METHOD), S_OK);

    EXPECT_EQ(machine->m_Called, OLESTR("entry/store"));
    EXPECT_EQ(machine->m_AutoUnlock, VARIANT_FALSE);
}

TEST_F(DispatchTest, AnAbsentOptionalArgumentTakesItsDefault)
{
    Call twoArguments;
    twoArguments.Unnamed(Variant::Text(OLESTR("s"))).Unnamed(Variant::Text(OLESTR("e")));
    EXPECT_EQ(twoArguments.Make(machine.Get(), 5, DISPATCH_METHOD), S_OK);
    EXPECT_EQ(machine->m_AutoUnlock, VARIANT_TRUE);

    machine->m_AutoUnlock = 55;
    Call markedMissing;
    markedMissing.Unnamed(Variant::Missing())
        .Unnamed(Variant::Text(OLESTR("s")))
        .Unnamed(Variant::Text(OLESTR("e")));
    EXPECT_EQ(markedMissing.Make(machine.Get(), 5, DISPATCH_METHOD), S_OK);
    EXPECT_EQ(machine->m_AutoUnlock, VARIANT_TRUE);
}

TEST_F(DispatchTest, AnAbsentVariantIsMarkedAsMissing)
{
    Call call;
    call.Named(2, Variant::Long(1)).Unnamed(Variant::Text(OLESTR("n")));

    EXPECT_EQ(call.Make(machine.Get(), 15, DISPATCH_METHOD), S_OK);

    EXPECT_EQ(machine->m_IdType, VT_ERROR);
    EXPECT_EQ(machine->m_ProgressType, VT_I4);
    EXPECT_TRUE(call.result.Is(VT_DISPATCH));
}

TEST_F(DispatchTest, ArgumentsMayAllBeNamed)
{
    Call call;
    call.Named(0, Variant::Text(OLESTR("e")))
        .Named(2, Variant::Bool(false))
        .Named(1, Variant::Text(OLESTR("s")));

    EXPECT_EQ(call.Make(machine.Get(), 5, DISPATCH_METHOD), S_OK);

    EXPECT_EQ(machine->m_Called, OLESTR("e/s"));
    EXPECT_EQ(machine->m_AutoUnlock, VARIANT_FALSE);
}

TEST_F(DispatchTest, ValuesAreChangedToTheParametersTypes)
{
    const auto part = MakeComObject<CPart>();
    Call call;
    call.Unnamed(Variant::Text(OLESTR("9"))).Unnamed(Variant::Unknown(part.Get()));

    EXPECT_EQ(call.Make(machine.Get(), 4, DISPATCH_METHOD), S_OK);

    EXPECT_EQ(machine->m_Flags, 9u);
    EXPECT_EQ(machine->m_Weight, 3.0);
    EXPECT_EQ(machine->m_pRaw.Get(), static_cast<IUnknown*>(part.Get()));
}

TEST_F(DispatchTest, PropertiesAreReadAndWrittenUnderOneIdentifier)
{
    Call put;
    put.Named(DISPID_PROPERTYPUT, Variant::Long(20));
    EXPECT_EQ(put.Make(machine.Get(), 13, DISPATCH_PROPERTYPUT), S_OK);
    EXPECT_EQ(machine->m_Colour, Colour::Green);

    Call get;
    EXPECT_EQ(get.Make(machine.Get(), 13, DISPATCH_PROPERTYGET), S_OK);
    EXPECT_TRUE(get.result.Is(VT_I4));
    EXPECT_EQ(get.result.Raw().lVal, 20);
}

TEST_F(DispatchTest, AnObjectMayBePutByReferenceIntoAPropertyThatTakesOne)
{
    const auto part = MakeComObject<CPart>();
    Call put;
    put.Named(DISPID_PROPERTYPUT, Variant::Unknown(part.Get()));

    EXPECT_EQ(put.Make(machine.Get(), 3, DISPATCH_PROPERTYPUTREF), S_OK);
    EXPECT_EQ(machine->m_pRaw.Get(), static_cast<IUnknown*>(part.Get()));
    machine->m_pRaw.Reset();
    EXPECT_EQ(put.Make(machine.Get(), 3, DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF), S_OK);
    EXPECT_EQ(machine->m_pRaw.Get(), static_cast<IUnknown*>(part.Get()));
}

TEST_F(DispatchTest, APropertyThatTakesNoObjectIsNotPutByReference)
{
    Call put;
    put.Named(DISPID_PROPERTYPUT, Variant::Long(20));

    EXPECT_EQ(put.Make(machine.Get(), 13, DISPATCH_PROPERTYPUTREF), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(machine->m_Colour, Colour::None);
}

TEST_F(DispatchTest, ANewValueHasToBeNamedAsOne)
{
    Call put;
    put.Unnamed(Variant::Long(20));
    EXPECT_EQ(put.Make(machine.Get(), 13, DISPATCH_PROPERTYPUT), DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(put.argumentError, 0u);
    EXPECT_EQ(machine->m_Colour, Colour::None);

    Call nothing;
    EXPECT_EQ(nothing.Make(machine.Get(), 13, DISPATCH_PROPERTYPUT), DISP_E_PARAMNOTOPTIONAL);
}

TEST_F(DispatchTest, TheDefaultMemberIsFoundUnderZeroWhateverTheCallerCallsIt)
{
    Call call;
    call.Unnamed(Variant::Text(OLESTR("key")));

    EXPECT_EQ(call.Make(machine.Get(), DISPID_VALUE, DISPATCH_METHOD | DISPATCH_PROPERTYGET), S_OK);

    EXPECT_EQ(ViewOf(call.result.Raw().bstrVal), OLESTR("key"));
    Call enumerator;
    EXPECT_EQ(enumerator.Make(machine.Get(), DISPID_NEWENUM, DISPATCH_PROPERTYGET), S_OK);
    EXPECT_TRUE(enumerator.result.Is(VT_UNKNOWN));
}

TEST_F(DispatchTest, AVariantByReferenceIsHandedOnAsItsValue)
{
    Variant held = Variant::Long(3);
    Variant reference;
    reference.Raw().vt = VT_BYREF | VT_VARIANT;
    reference.Raw().pvarVal = &held.Raw();
    Call call;
    call.Unnamed(std::move(reference));

    EXPECT_EQ(call.Make(machine.Get(), DISPID_VALUE, DISPATCH_PROPERTYGET), S_OK);

    EXPECT_TRUE(call.result.Is(VT_I4));
}

TEST_F(DispatchTest, ReferencesOfTheRightTypeAreWrittenThrough)
{
    VARIANT_BOOL ignore = VARIANT_FALSE;
    Bstr text(OLESTR("hey"));
    BSTR textPlace = text.Detach();
    LONG number = 41;
    VARIANT any = Variant::Long(5).Detach();
    VARIANT arguments[4]{};
    arguments[3].vt = VT_BYREF | VT_BOOL;
    arguments[3].pboolVal = &ignore;
    arguments[2].vt = VT_BYREF | VT_BSTR;
    arguments[2].pbstrVal = &textPlace;
    arguments[1].vt = VT_BYREF | VT_I4;
    arguments[1].plVal = &number;
    arguments[0].vt = VT_BYREF | VT_VARIANT;
    arguments[0].pvarVal = &any;
    DISPPARAMS params{arguments, nullptr, 4, 0};

    EXPECT_EQ(machine->Invoke(6, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr), S_OK);

    EXPECT_EQ(ignore, VARIANT_TRUE);
    EXPECT_EQ(Bstr::Attach(textPlace).View(), OLESTR("hey!"));
    EXPECT_EQ(number, 42);
    EXPECT_EQ(any.vt, VT_BSTR);
    VariantClear(&any);
}

TEST_F(DispatchTest, ReferencesOfAnotherTypeAreWrittenBackInThatType)
{
    Variant ignore = Variant::Long(0);
    SHORT number = 41;
    VARIANT text = Variant::Text(OLESTR("hey")).Detach();
    VARIANT arguments[4]{};
    arguments[3].vt = VT_BYREF | VT_VARIANT;
    arguments[3].pvarVal = &ignore.Raw();
    arguments[2].vt = VT_BYREF | VT_VARIANT;
    arguments[2].pvarVal = &text;
    arguments[1].vt = VT_BYREF | VT_I2;
    arguments[1].piVal = &number;
    arguments[0] = Variant::Long(5).Detach();
    DISPPARAMS params{arguments, nullptr, 4, 0};

    EXPECT_EQ(machine->Invoke(6, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr), S_OK);

    EXPECT_TRUE(ignore.Is(VT_BOOL));
    EXPECT_EQ(ignore.Raw().boolVal, VARIANT_TRUE);
    EXPECT_EQ(ViewOf(text.bstrVal), OLESTR("hey!"));
    EXPECT_EQ(number, 42);
    EXPECT_EQ(arguments[0].lVal, 5) << "a value has nowhere to be written back to";
    VariantClear(&text);
}

TEST_F(DispatchTest, AnArrayGivenByValueStaysTheCallers)
{
    VariantArrayBuilder builder;
    SafeArray array;
    ASSERT_EQ(builder.Append(Variant::Text(OLESTR("x")).Raw()), S_OK);
    ASSERT_EQ(builder.Take(array), S_OK);
    Call put;
    put.Named(DISPID_PROPERTYPUT, array.DetachAsVariant());

    EXPECT_EQ(put.Make(machine.Get(), 2, DISPATCH_PROPERTYPUT), S_OK);

    ArrayView<VARIANT> given;
    ArrayView<VARIANT> taken;
    ASSERT_EQ(given.Open(put.raw[0]), S_OK);
    ASSERT_EQ(taken.Open(machine->m_Excluded.Get()), S_OK);
    EXPECT_EQ(given.Count(), 1u);
    EXPECT_EQ(taken.Count(), 1u);
    Call get;
    EXPECT_EQ(get.Make(machine.Get(), 2, DISPATCH_PROPERTYGET), S_OK);
    EXPECT_TRUE(get.result.Is(VT_ARRAY | VT_VARIANT));
}

TEST_F(DispatchTest, AnArrayByReferenceMayBeReplaced)
{
    VariantArrayBuilder builder;
    SafeArray array;
    ASSERT_EQ(builder.Append(Variant::Long(1).Raw()), S_OK);
    ASSERT_EQ(builder.Take(array), S_OK);
    SAFEARRAY* place = array.Detach();
    VARIANT argument{};
    argument.vt = VT_BYREF | VT_ARRAY | VT_VARIANT;
    argument.pparray = &place;
    DISPID name = DISPID_PROPERTYPUT;
    DISPPARAMS params{&argument, &name, 1, 1};

    EXPECT_EQ(machine->Invoke(2, IID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr),
              S_OK);

    const SafeArray replaced = SafeArray::Attach(place);
    EXPECT_EQ(replaced.Get()->rgsabound[0].cElements, 0u);
}

TEST_F(DispatchTest, AnArrayOfAnotherTypeIsAMismatch)
{
    ULongArrayBuilder builder;
    SafeArray array;
    ASSERT_EQ(builder.Take(array), S_OK);
    Call call;
    call.Unnamed(array.DetachAsVariant());

    EXPECT_EQ(call.Make(machine.Get(), 10, DISPATCH_METHOD), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(call.argumentError, 0u);
}

TEST_F(DispatchTest, TheArgumentThatCannotBeChangedIsNamed)
{
    Call call;
    call.Unnamed(Variant::Text(OLESTR("nine"))).Unnamed(Variant::Dispatch(nullptr));
    EXPECT_EQ(call.Make(machine.Get(), 4, DISPATCH_METHOD), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(call.argumentError, 0u);

    Call wrongObject;
    wrongObject.Unnamed(Variant::Long(1)).Unnamed(Variant::Dispatch(machine.Get()));
    EXPECT_EQ(wrongObject.Make(machine.Get(), 4, DISPATCH_METHOD), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(wrongObject.argumentError, 1u);

    Call overflow;
    overflow.Unnamed(Variant::Double(1e20)).Unnamed(Variant::Dispatch(nullptr));
    EXPECT_EQ(overflow.Make(machine.Get(), 4, DISPATCH_METHOD), DISP_E_OVERFLOW);
}

TEST_F(DispatchTest, TheNumberOfArgumentsIsChecked)
{
    Call tooMany;
    tooMany.Unnamed(Variant::Long(1)).Unnamed(Variant::Long(1));
    EXPECT_EQ(tooMany.Make(machine.Get(), 9, DISPATCH_METHOD), DISP_E_BADPARAMCOUNT);
    Call tooFew;
    tooFew.Unnamed(Variant::Text(OLESTR("e")));
    EXPECT_EQ(tooFew.Make(machine.Get(), 5, DISPATCH_METHOD), DISP_E_PARAMNOTOPTIONAL);
    Call twice;
    twice.Named(0, Variant::Text(OLESTR("e"))).Unnamed(Variant::Text(OLESTR("e")));
    EXPECT_EQ(twice.Make(machine.Get(), 5, DISPATCH_METHOD), DISP_E_BADPARAMCOUNT);
    Call unknownName;
    unknownName.Named(9, Variant::Long(1));
    EXPECT_EQ(unknownName.Make(machine.Get(), 5, DISPATCH_METHOD), DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(unknownName.argumentError, 0u);
}

TEST_F(DispatchTest, AListOfArgumentsThatLiesIsRefused)
{
    DISPPARAMS noList{nullptr, nullptr, 1, 0};
    DISPPARAMS moreNamesThanArguments{nullptr, nullptr, 0, 1};

    EXPECT_EQ(machine->Invoke(9, IID_NULL, 0, DISPATCH_METHOD, &noList, nullptr, nullptr, nullptr),
              E_INVALIDARG);
    EXPECT_EQ(
        machine->Invoke(9, IID_NULL, 0, DISPATCH_METHOD, &moreNamesThanArguments, nullptr, nullptr, nullptr),
        DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(machine->Invoke(9, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr),
              E_INVALIDARG);
}

TEST_F(DispatchTest, AnUnknownIdentifierOrKindIsNoMember)
{
    Call call;
    EXPECT_EQ(call.Make(machine.Get(), 6000, DISPATCH_METHOD), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(call.Make(machine.Get(), 7, DISPATCH_PROPERTYPUT), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(call.Make(machine.Get(), 3, DISPATCH_PROPERTYGET), DISP_E_MEMBERNOTFOUND);
    DISPPARAMS none{};
    EXPECT_EQ(machine->Invoke(7, IID_IStream, 0, DISPATCH_PROPERTYGET, &none, nullptr, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
}

TEST_F(DispatchTest, AFailureWithTextBecomesAnException)
{
    VARIANT arguments[2] = {Variant::Bool(true).Detach(), Variant::Long(E_ACCESSDENIED).Detach()};
    DISPPARAMS params{arguments, nullptr, 2, 0};
    EXCEPINFO exception{};

    EXPECT_EQ(machine->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, &exception, nullptr),
              DISP_E_EXCEPTION);

    EXPECT_EQ(exception.scode, E_ACCESSDENIED);
    EXPECT_EQ(Bstr::Attach(exception.bstrDescription).View(), OLESTR("it broke"));
    EXPECT_EQ(Bstr::Attach(exception.bstrSource).View(), OLESTR("Machine"));
    SysFreeString(exception.bstrHelpFile);
}

TEST_F(DispatchTest, AFailureWithoutTextIsAnExceptionWithoutTextEvenAfterAnOlderError)
{
    RaiseError(kMachineId, OLESTR("old"), OLESTR("old"), E_FAIL);
    VARIANT arguments[2] = {Variant::Bool(false).Detach(), Variant::Long(E_ACCESSDENIED).Detach()};
    DISPPARAMS params{arguments, nullptr, 2, 0};
    EXCEPINFO exception{};

    EXPECT_EQ(machine->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, &exception, nullptr),
              DISP_E_EXCEPTION);
    EXPECT_EQ(exception.scode, E_ACCESSDENIED);
    EXPECT_EQ(exception.bstrDescription, nullptr);
}

TEST_F(DispatchTest, ACodeOfTheOperationIsNotTakenForOneOfTheCall)
{
    VARIANT arguments[2] = {Variant::Bool(false).Detach(), Variant::Long(DISP_E_MEMBERNOTFOUND).Detach()};
    DISPPARAMS params{arguments, nullptr, 2, 0};
    EXCEPINFO exception{};

    EXPECT_EQ(machine->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, &exception, nullptr),
              DISP_E_EXCEPTION);
    EXPECT_EQ(exception.scode, DISP_E_MEMBERNOTFOUND);
}

TEST_F(DispatchTest, AnErrorOfTheCallItselfLeavesTheExceptionAlone)
{
    DISPPARAMS none{};
    EXCEPINFO exception{};
    exception.scode = 7;

    EXPECT_EQ(machine->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, &exception, nullptr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(exception.scode, 7);
}

TEST_F(DispatchTest, WithoutAPlaceForTheExceptionTheErrorStaysOnTheThread)
{
    Call call;
    call.Unnamed(Variant::Bool(true)).Unnamed(Variant::Long(E_FAIL));

    EXPECT_EQ(call.Make(machine.Get(), 8, DISPATCH_METHOD), E_FAIL);
    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("it broke"));
}

TEST_F(DispatchTest, ASuccessCodeOfTheOperationIsKept)
{
    Call call;
    call.Unnamed(Variant::Text(OLESTR("e")));

    EXPECT_EQ(call.Make(machine.Get(), 9, DISPATCH_METHOD), S_FALSE);
    EXPECT_TRUE(call.result.Is(VT_BOOL));
}

TEST_F(DispatchTest, AnExceptionNeverLeavesTheCall)
{
    Call call;
    EXPECT_EQ(call.Make(machine.Get(), 11, DISPATCH_METHOD), E_OUTOFMEMORY);
}

TEST_F(DispatchTest, AResultThatNobodyWantsIsFreed)
{
    DISPPARAMS none{};
    EXPECT_EQ(machine->Invoke(7, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, nullptr, nullptr, nullptr), S_OK);
}

TEST_F(DispatchTest, ThereIsNoTypeInformation)
{
    UINT count = 9;
    ITypeInfo* info = nullptr;

    EXPECT_EQ(machine->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(machine->GetTypeInfo(0, 0, &info), DISP_E_BADINDEX);
}

TEST_F(DispatchTest, TheCallersSideListsArgumentsInTheirOrder)
{
    const Bstr entry(OLESTR("entry"));
    const Bstr store(OLESTR("store"));
    VARIANT arguments[2]{};
    arguments[0].vt = arguments[1].vt = VT_BSTR;
    arguments[0].bstrVal = entry.Get();
    arguments[1].bstrVal = store.Get();

    EXPECT_EQ(InvokeById(machine.Get(), 5, DISPATCH_METHOD, arguments), S_OK);

    EXPECT_EQ(machine->m_Called, OLESTR("entry/store"));
}

TEST_F(DispatchTest, TheCallersSideReadsAndWritesProperties)
{
    const VARIANT red = Variant::Long(10).Detach();
    Variant result;

    EXPECT_EQ(InvokeById(machine.Get(), 13, DISPATCH_PROPERTYPUT, std::span(&red, 1)), S_OK);
    EXPECT_EQ(InvokeById(machine.Get(), 13, DISPATCH_PROPERTYGET, {}, &result), S_OK);

    EXPECT_EQ(result.Raw().lVal, 10);
}

TEST_F(DispatchTest, TheCallersSideResolvesAnException)
{
    const VARIANT arguments[2] = {Variant::Long(E_ACCESSDENIED).Detach(), Variant::Bool(true).Detach()};

    EXPECT_EQ(InvokeById(machine.Get(), 8, DISPATCH_METHOD, arguments), E_ACCESSDENIED);
    EXPECT_EQ(InvokeById(nullptr, 8, DISPATCH_METHOD, arguments), E_POINTER);
}

TEST(OperationTest, ASlotIsItsPlaceInTheVtable)
{
    constexpr auto& table = OperationsOf<IMachine>::kTable;

    for (size_t i = 0; i < std::size(table); ++i)
        EXPECT_EQ(table[i].slot(), 7 + i) << Narrow(table[i].name);
}

TEST(OperationTest, TheTypesOfParametersAreThoseOfTheSlot)
{
    const auto typesOf = [](size_t place) {
        const Operation& operation = OperationsOf<IMachine>::kTable[place];
        std::vector<VARTYPE> types;
        for (size_t i = 0; i < operation.parameterCount; ++i)
            types.push_back(operation.types[i].type);
        return types;
    };

    EXPECT_EQ(typesOf(0), std::vector<VARTYPE>{VT_BYREF | VT_UNKNOWN});
    EXPECT_EQ(typesOf(1), (std::vector<VARTYPE>{VT_VARIANT, VT_BYREF | VT_VARIANT}));
    EXPECT_EQ(typesOf(2), (std::vector<VARTYPE>{VT_BSTR, VT_BSTR, VT_BOOL}));
    EXPECT_EQ(typesOf(3), (std::vector<VARTYPE>{VT_BSTR, VT_VARIANT, VT_VARIANT, VT_BYREF | VT_DISPATCH}));
    EXPECT_EQ(typesOf(5), std::vector<VARTYPE>{VT_I4});
    EXPECT_EQ(typesOf(7), std::vector<VARTYPE>{VT_BYREF | VT_ARRAY | VT_VARIANT});
    EXPECT_EQ(typesOf(9), (std::vector<VARTYPE>{VT_DISPATCH, VT_UI4, VT_R8}));
    EXPECT_EQ(typesOf(10), (std::vector<VARTYPE>{VT_BYREF | VT_BOOL, VT_BYREF | VT_BSTR, VT_BYREF | VT_I4,
                                                 VT_BYREF | VT_VARIANT}));
    EXPECT_TRUE(OperationsOf<IMachine>::kTable[5].types[0].isEnumeration);
    EXPECT_TRUE(IsEqualIID(OperationsOf<IMachine>::kTable[9].types[0].interfaceId(), kPartId));
}

TEST(OperationTest, ANewValueThatIsAPointerGoesInAndOut)
{
    EXPECT_EQ(OperationsOf<IMachine>::kTable[7].arguments[0].kind, ArgumentKind::InOut);
    EXPECT_EQ(OperationsOf<IMachine>::kTable[5].arguments[0].kind, ArgumentKind::In);
}

}  // namespace
}  // namespace quorvane
