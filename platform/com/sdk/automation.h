// platform/com/sdk/automation.h: BSTR, VARIANT, SAFEARRAY, IDispatch and their functions, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_AUTOMATION_H_
#define QUORVANE_PLATFORM_COM_SDK_AUTOMATION_H_

#include "platform/com/sdk/hresult.h"
#include "platform/com/sdk/unknown.h"

DEFINE_OLEGUID(IID_IDispatch, 0x00020400, 0, 0);
DEFINE_OLEGUID(IID_ITypeInfo, 0x00020401, 0, 0);
DEFINE_OLEGUID(IID_IEnumVARIANT, 0x00020404, 0, 0);

#define LOCALE_USER_DEFAULT 0x0400u
#define LOCALE_SYSTEM_DEFAULT 0x0800u

#define DISPID_VALUE 0
#define DISPID_UNKNOWN (-1)
#define DISPID_PROPERTYPUT (-3)
#define DISPID_NEWENUM (-4)

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
    VT_TYPEMASK = 0x0FFF
};

struct IDispatch;
struct ITypeInfo;

struct SAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
};

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_FIXEDSIZE 0x0010
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800

struct SAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    void* pvData;
    SAFEARRAYBOUND rgsabound[1];
};
static_assert(offsetof(SAFEARRAY, pvData) == 16 && offsetof(SAFEARRAY, rgsabound) == 24);

struct DECIMAL {
    USHORT wReserved;
    BYTE scale;
    BYTE sign;
    ULONG Hi32;
    ULONGLONG Lo64;
};

struct VARIANT {
    union {
        struct {
            VARTYPE vt;
            WORD wReserved1;
            WORD wReserved2;
            WORD wReserved3;
            union {
                LONGLONG llVal;
                LONG lVal;
                BYTE bVal;
                SHORT iVal;
                FLOAT fltVal;
                DOUBLE dblVal;
                VARIANT_BOOL boolVal;
                SCODE scode;
                CY cyVal;
                DATE date;
                BSTR bstrVal;
                IUnknown* punkVal;
                IDispatch* pdispVal;
                SAFEARRAY* parray;
                BYTE* pbVal;
                SHORT* piVal;
                LONG* plVal;
                LONGLONG* pllVal;
                FLOAT* pfltVal;
                DOUBLE* pdblVal;
                VARIANT_BOOL* pboolVal;
                SCODE* pscode;
                CY* pcyVal;
                DATE* pdate;
                BSTR* pbstrVal;
                IUnknown** ppunkVal;
                IDispatch** ppdispVal;
                SAFEARRAY** pparray;
                VARIANT* pvarVal;
                void* byref;
                CHAR cVal;
                USHORT uiVal;
                ULONG ulVal;
                ULONGLONG ullVal;
                INT intVal;
                UINT uintVal;
                CHAR* pcVal;
                USHORT* puiVal;
                ULONG* pulVal;
                ULONGLONG* pullVal;
                INT* pintVal;
                UINT* puintVal;
                void* reserved[2];
            };
        };
        DECIMAL decVal;
    };
};
using VARIANTARG = VARIANT;

struct DISPPARAMS {
    VARIANTARG* rgvarg;
    DISPID* rgdispidNamedArgs;
    UINT cArgs;
    UINT cNamedArgs;
};

// The three texts are BSTRs that the receiver of the structure frees.
struct EXCEPINFO {
    WORD wCode;
    WORD wReserved;
    BSTR bstrSource;
    BSTR bstrDescription;
    BSTR bstrHelpFile;
    DWORD dwHelpContext;
    void* pvReserved;
    HRESULT(STDAPICALLTYPE* pfnDeferredFillIn)(EXCEPINFO*);
    SCODE scode;
};

struct IDispatch : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                                    DISPID* ids) = 0;
    virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                             DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                                             UINT* argumentError) = 0;
};
using LPDISPATCH = IDispatch*;

struct IEnumVARIANT : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* elements, ULONG* fetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** enumerator) = 0;
};

STDAPI_(BSTR) SysAllocString(const OLECHAR* text);
STDAPI_(BSTR) SysAllocStringLen(const OLECHAR* text, UINT length);
STDAPI_(BSTR) SysAllocStringByteLen(LPCSTR bytes, UINT length);
STDAPI_(INT) SysReAllocString(BSTR* text, const OLECHAR* value);
STDAPI_(void) SysFreeString(BSTR text);
STDAPI_(UINT) SysStringLen(BSTR text);
STDAPI_(UINT) SysStringByteLen(BSTR text);

#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02

STDAPI_(void) VariantInit(VARIANTARG* variant);
STDAPI VariantClear(VARIANTARG* variant);
STDAPI VariantCopy(VARIANTARG* target, const VARIANTARG* source);
STDAPI VariantCopyInd(VARIANT* target, const VARIANTARG* source);
STDAPI VariantChangeType(VARIANTARG* target, const VARIANTARG* source, USHORT flags, VARTYPE type);

#define VARCMP_LT 0
#define VARCMP_EQ 1
#define VARCMP_GT 2
#define VARCMP_NULL 3

// Orders two texts by the locale's collation; answers VARCMP_LT, VARCMP_EQ or VARCMP_GT. Off Windows the
// collation is the platform's own, the same for every locale; a null text equals an empty one.
STDAPI VarBstrCmp(BSTR left, BSTR right, LCID lcid, ULONG flags);

STDAPI_(SAFEARRAY*) SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);
STDAPI_(SAFEARRAY*) SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG count);
STDAPI SafeArrayDestroy(SAFEARRAY* array);
STDAPI SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy);
STDAPI SafeArrayRedim(SAFEARRAY* array, SAFEARRAYBOUND* newBound);
STDAPI SafeArrayLock(SAFEARRAY* array);
STDAPI SafeArrayUnlock(SAFEARRAY* array);
STDAPI SafeArrayAccessData(SAFEARRAY* array, void** data);
STDAPI SafeArrayUnaccessData(SAFEARRAY* array);
STDAPI SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value);
STDAPI SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value);
STDAPI SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
STDAPI SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);
STDAPI SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);
STDAPI_(UINT) SafeArrayGetDim(SAFEARRAY* array);
STDAPI_(UINT) SafeArrayGetElemsize(SAFEARRAY* array);

STDAPI_(INT) SystemTimeToVariantTime(SYSTEMTIME* time, double* variantTime);
STDAPI_(INT) VariantTimeToSystemTime(double variantTime, SYSTEMTIME* time);
STDAPI_(BOOL) FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime);
STDAPI_(BOOL) SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime);

#endif  // QUORVANE_PLATFORM_COM_SDK_AUTOMATION_H_
