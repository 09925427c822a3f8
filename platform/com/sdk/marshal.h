// platform/com/sdk/marshal.h: how an object crosses to another thread, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_MARSHAL_H_
#define QUORVANE_PLATFORM_COM_SDK_MARSHAL_H_

#include "platform/com/sdk/storage.h"

DEFINE_OLEGUID(IID_IMarshal, 0x00000003, 0, 0);
DEFINE_OLEGUID(CLSID_InProcFreeMarshaler, 0x0000033A, 0, 0);

enum MSHCTX { MSHCTX_LOCAL = 0, MSHCTX_NOSHAREDMEM = 1, MSHCTX_DIFFERENTMACHINE = 2, MSHCTX_INPROC = 3 };
enum MSHLFLAGS {
    MSHLFLAGS_NORMAL = 0,
    MSHLFLAGS_TABLESTRONG = 1,
    MSHLFLAGS_TABLEWEAK = 2,
    MSHLFLAGS_NOPING = 4
};

// Off Windows an object that is to cross is asked for GetUnmarshalClass alone: CLSID_InProcFreeMarshaler
// means that any thread may use the object, which then crosses as itself.
struct IMarshal : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID riid, void* object, DWORD context,
                                                        void* reserved, DWORD flags, CLSID* clsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID riid, void* object, DWORD context,
                                                        void* reserved, DWORD flags, DWORD* size) = 0;
    virtual HRESULT STDMETHODCALLTYPE MarshalInterface(IStream* stream, REFIID riid, void* object,
                                                       DWORD context, void* reserved, DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream* stream, REFIID riid, void** object) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream* stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD reserved) = 0;
};

// Makes the free-threaded marshaler, for an object to aggregate: `outer` answers IID_IMarshal with what the
// marshaler answers. Off Windows its methods other than GetUnmarshalClass give E_NOTIMPL.
STDAPI CoCreateFreeThreadedMarshaler(IUnknown* outer, IUnknown** marshaler);

// Carries one interface pointer to another thread in a stream that is read once.
STDAPI CoMarshalInterThreadInterfaceInStream(REFIID riid, IUnknown* object, IStream** stream);
STDAPI CoGetInterfaceAndReleaseStream(IStream* stream, REFIID riid, void** object);
// Gives up what a stream carries unread; the stream itself stays the caller's.
STDAPI CoReleaseMarshalData(IStream* stream);

#endif  // QUORVANE_PLATFORM_COM_SDK_MARSHAL_H_
