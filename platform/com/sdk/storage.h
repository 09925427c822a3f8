// platform/com/sdk/storage.h: the structured-storage interfaces and constants, off Windows.
// The functions that make and open compound files are declared in platform/cfb/stg.h.
#ifndef QUORVANE_PLATFORM_COM_SDK_STORAGE_H_
#define QUORVANE_PLATFORM_COM_SDK_STORAGE_H_

#include "platform/com/sdk/unknown.h"

DEFINE_OLEGUID(IID_ILockBytes, 0x0000000A, 0, 0);
DEFINE_OLEGUID(IID_IStorage, 0x0000000B, 0, 0);
DEFINE_OLEGUID(IID_IStream, 0x0000000C, 0, 0);
DEFINE_OLEGUID(IID_IEnumSTATSTG, 0x0000000D, 0, 0);
DEFINE_GUID(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE, 0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77,
            0x3D);

#define STGM_DIRECT 0x00000000u
#define STGM_TRANSACTED 0x00010000u
#define STGM_SIMPLE 0x08000000u
#define STGM_READ 0x00000000u
#define STGM_WRITE 0x00000001u
#define STGM_READWRITE 0x00000002u
#define STGM_SHARE_DENY_NONE 0x00000040u
#define STGM_SHARE_DENY_READ 0x00000030u
#define STGM_SHARE_DENY_WRITE 0x00000020u
#define STGM_SHARE_EXCLUSIVE 0x00000010u
#define STGM_PRIORITY 0x00040000u
#define STGM_DELETEONRELEASE 0x04000000u
#define STGM_NOSCRATCH 0x00100000u
#define STGM_CREATE 0x00001000u
#define STGM_CONVERT 0x00020000u
#define STGM_FAILIFTHERE 0x00000000u

enum STGTY { STGTY_STORAGE = 1, STGTY_STREAM = 2, STGTY_LOCKBYTES = 3, STGTY_PROPERTY = 4 };
enum STREAM_SEEK { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };
enum STATFLAG { STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1, STATFLAG_NOOPEN = 2 };
enum STGC { STGC_DEFAULT = 0, STGC_OVERWRITE = 1, STGC_ONLYIFCURRENT = 2 };
enum STGMOVE { STGMOVE_MOVE = 0, STGMOVE_COPY = 1, STGMOVE_SHALLOWCOPY = 2 };

using SNB = OLECHAR**;

// pwcsName is from CoTaskMemAlloc and is the caller's; null with STATFLAG_NONAME.
struct STATSTG {
    LPOLESTR pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
};
static_assert(offsetof(STATSTG, cbSize) == 16 && offsetof(STATSTG, clsid) == 56 && sizeof(STATSTG) == 80);

struct ISequentialStream : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) = 0;
};

struct IStream : ISequentialStream {
    virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                             ULARGE_INTEGER* written) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
    virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count,
                                                   DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IStream** stream) = 0;
};
using LPSTREAM = IStream*;

struct IEnumSTATSTG : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, STATSTG* elements, ULONG* fetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumSTATSTG** enumerator) = 0;
};

struct IStorage : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateStream(LPCOLESTR name, DWORD mode, DWORD reserved1,
                                                   DWORD reserved2, IStream** stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStream(LPCOLESTR name, void* reserved1, DWORD mode, DWORD reserved2,
                                                 IStream** stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateStorage(LPCOLESTR name, DWORD mode, DWORD reserved1,
                                                    DWORD reserved2, IStorage** storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStorage(LPCOLESTR name, IStorage* priority, DWORD mode, SNB exclude,
                                                  DWORD reserved, IStorage** storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyTo(DWORD excludedCount, const IID* excludedInterfaces,
                                             SNB excludedNames, IStorage* target) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveElementTo(LPCOLESTR name, IStorage* target, LPCOLESTR newName,
                                                    DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                                                   IEnumSTATSTG** enumerator) = 0;
    virtual HRESULT STDMETHODCALLTYPE DestroyElement(LPCOLESTR name) = 0;
    virtual HRESULT STDMETHODCALLTYPE RenameElement(LPCOLESTR oldName, LPCOLESTR newName) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetElementTimes(LPCOLESTR name, const FILETIME* created,
                                                      const FILETIME* accessed, const FILETIME* modified) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetClass(REFCLSID clsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetStateBits(DWORD bits, DWORD mask) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) = 0;
};
using LPSTORAGE = IStorage*;

struct ILockBytes : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count,
                                             ULONG* read) = 0;
    virtual HRESULT STDMETHODCALLTYPE WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count,
                                              ULONG* written) = 0;
    virtual HRESULT STDMETHODCALLTYPE Flush() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count,
                                                   DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) = 0;
};

#endif  // QUORVANE_PLATFORM_COM_SDK_STORAGE_H_
