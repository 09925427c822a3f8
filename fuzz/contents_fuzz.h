// fuzz/contents_fuzz.h: what the targets of items and folders share.
#ifndef QUORVANE_FUZZ_CONTENTS_FUZZ_H_
#define QUORVANE_FUZZ_CONTENTS_FUZZ_H_

#include "fuzz/mailbox.h"

namespace quorvane::fuzz {

// Loads `object` from a storage if the input looks like one, else from a stream.
template <class Persistent>
HRESULT LoadFrom(Persistent& object, const BYTE* data, std::size_t size)
{
    if (!LooksLikeCompoundFile(data, size))
        return object.Load(MakeStreamOn(data, size).Get());
    const ComPtr<IStorage> storage = OpenStorageOn(data, size);
    return storage ? object.Load(storage.Get()) : STG_E_INVALIDHEADER;
}

// What is written of one object is read by another. That is to be equal then.
template <class Persistent>
void PassOn(Persistent& from, Persistent& to)
{
    const ComPtr<IStream> stream = MakeStreamOn(nullptr, 0);
    Require(from.Save(stream.Get(), FALSE) == S_OK, "what was read isn't written");
    ULARGE_INTEGER end{};
    Require(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_CUR, &end) == S_OK, "a stream's end");
    ULARGE_INTEGER told{};
    Require(from.GetSizeMax(&told) == S_OK && told.QuadPart == end.QuadPart,
            "another size is written than was told");
    Require(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr) == S_OK, "a stream's beginning");
    Require(to.Load(stream.Get()) == S_OK, "what was written isn't read");
}

inline bool AreEqual(const Bstr& a, const Bstr& b)
{
    return a.IsNull() == b.IsNull() && a.View() == b.View();
}

}  // namespace quorvane::fuzz

#endif  // QUORVANE_FUZZ_CONTENTS_FUZZ_H_
