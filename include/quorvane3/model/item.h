// quorvane3/model/item.h: one shared message.
//
// An item has three identities: what it is called among the members (ID), where its message lies here
// (EntryID in StoreID), and the shared folder that it belongs to. It may stand for a message of a store, for
// one that came in a package or a stream, or for none: a deletion.
#ifndef QUORVANE3_MODEL_ITEM_H_
#define QUORVANE3_MODEL_ITEM_H_

#include "quorvane3/model/identifiers.h"

struct IFolder;

// One thread at a time. Getters give copies.
struct IItem : IDispatch {
    // The sharing ID, at most 49 characters.
    virtual HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ID(BSTR newVal) = 0;
    // Property tags that aren't carried along, and the text "FileAs" for the property of that name. The array
    // (of VARIANTs) is copied each way.
    virtual HRESULT STDMETHODCALLTYPE get_ExcludedProperties(SAFEARRAY** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ExcludedProperties(SAFEARRAY** newVal) = 0;
    // The shared folder in which the message lies. The failure of reading its parent's identifier;
    // DISP_E_MEMBERNOTFOUND: that folder isn't shared.
    virtual HRESULT STDMETHODCALLTYPE get_Folder(IFolder** pVal) = 0;
    // Where the message lies, in hexadecimal text.
    virtual HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_EntryID(BSTR newVal) = 0;
    // The message (IMessage), opened for reading at the first call. E_INVALIDARG: there is none, and EntryID
    // or StoreID is empty. Setting one takes EntryID, StoreID and the modification time from it, as far as it
    // has them; E_NOINTERFACE: it is no message.
    virtual HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Raw(IUnknown* newVal) = 0;
    // Writes the item into the package of these recipients, in place of what the package has under its ID.
    // The package is made if there is none. An item without a message is a deletion to who receives it.
    virtual HRESULT STDMETHODCALLTYPE Send(BSTR Recipients) = 0;
    // A text of the host's own, which travels with the item.
    virtual HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR newVal) = 0;
    // The message's store, in hexadecimal text.
    virtual HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) = 0;
    // A property of the message: text as VT_BSTR, a time as VT_R8 (an OLE date), bytes as VT_BSTR in
    // hexadecimal text, any other type as VT_EMPTY. E_INVALIDARG: PropTag isn't a number. Others: the message
    // has no such property, or can't be opened.
    virtual HRESULT STDMETHODCALLTYPE GetProperty(VARIANT PropTag, VARIANT* Value) = 0;
    // Applies the item to its store: replaces the message's contents, makes the message where it is missing,
    // or deletes it when the item has none. E_INVALIDARG: no StoreID. Others: the step that failed; what was
    // done before stays.
    virtual HRESULT STDMETHODCALLTYPE Submit() = 0;
    // Carried along; not checked.
    virtual HRESULT STDMETHODCALLTYPE get_Action(qv_Action* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Action(qv_Action newVal) = 0;
    // Deletes a property of the message, by its tag or the text "FileAs", without saving. S_OK without a
    // message. E_INVALIDARG: neither.
    virtual HRESULT STDMETHODCALLTYPE DeleteProperty(VARIANT PropertyTag) = 0;
    // Writes the item as a compound file of its own.
    virtual HRESULT STDMETHODCALLTYPE SaveToFile(BSTR FileName) = 0;
    // The message as an array of bytes (VT_ARRAY | VT_UI1), a whole compound file; VT_ERROR when there is
    // none. Setting takes such an array; one without elements leaves the item without a message.
    virtual HRESULT STDMETHODCALLTYPE get_Stream(VARIANT* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Stream(VARIANT newVal) = 0;
    // Shows the message in the mail client's form for its class, over the active window of the calling
    // thread, and returns as soon as the form is open; what the arguments say doesn't matter. The item has to
    // hold its message already (get_Raw, put_Raw or a received item's own): E_POINTER. DISP_E_MEMBERNOTFOUND:
    // its folder isn't shared. Others: what the message store, the form manager and the form answered. A form
    // that stays open may outlive the session; until it closes DllCanUnloadNow answers S_FALSE, and a host
    // that ends before closes it with itself.
    virtual HRESULT STDMETHODCALLTYPE Display(VARIANT_BOOL Modal, LONG Parent) = 0;
    // The read status that Submit gives the message; exactly VARIANT_TRUE sets it. Starts true.
    virtual HRESULT STDMETHODCALLTYPE get_UnRead(VARIANT_BOOL* pVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_UnRead(VARIANT_BOOL newVal) = 0;
};

QUORVANE_IID(IItem, IID_IItem);

#endif  // QUORVANE3_MODEL_ITEM_H_
