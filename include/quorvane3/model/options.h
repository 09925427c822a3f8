// quorvane3/model/options.h: named values that adjust the engine. They live in memory and start anew with
// each session.
//
//   of                  name                            starts as     effect
//   ISession2::Options  "IgnoreModificationTimeChanges" true          none in the engine; the host's to use
//   ISession2::Options  "NoListeners"                   0 (a number)  true: folders that are added from then
//                                                                     on aren't watched
//   IFolder::Options    "UpdateReadStatus"              true          IItem::Submit gives the message the
//                                                                     item's UnRead; false: it stays unread
#ifndef QUORVANE3_MODEL_OPTIONS_H_
#define QUORVANE3_MODEL_OPTIONS_H_

#include "quorvane3/model/identifiers.h"

// A collection in the order of names. Any thread may call.
struct IOptions : IDispatch {
    // An enumerator (IEnumVARIANT) over the options as VT_DISPATCH.
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) = 0;
    // The option of a name (VT_BSTR) or of a place from 1 on, as VT_DISPATCH (IOption).
    // E_FAIL: no such name, or a place past the end. E_INVALIDARG: a place below 1. Others: `Index` can't be
    // changed to a number.
    virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) = 0;
};

struct IOption : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Name(BSTR* pVal) = 0;
    // A copy of the value. Setting takes any type as it is and never fails.
    virtual HRESULT STDMETHODCALLTYPE get_Value(VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Value(VARIANT newVal) = 0;
};

QUORVANE_IID(IOptions, IID_IOptions);
QUORVANE_IID(IOption, IID_IOption);

#endif  // QUORVANE3_MODEL_OPTIONS_H_
