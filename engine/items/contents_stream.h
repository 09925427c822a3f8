// items/contents_stream.h: the form in which items and folders persist their properties: the stream
// "Contents" of their storages.
//
//   bytes  field
//   4      format version: written as 1808; up to 2560 is read
//   then the properties in their order, with no padding; everything little-endian:
//   4      a text's length in bytes with its terminator; 0 for a null text, which has nothing behind it
//   n      the text in UTF-16, with a terminator of two zero bytes
//   4      a number, signed
//
// What is read comes from other people's packages: nothing in it is trusted.
#ifndef QUORVANE_ENGINE_ITEMS_CONTENTS_STREAM_H_
#define QUORVANE_ENGINE_ITEMS_CONTENTS_STREAM_H_

#include <string>

#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

inline constexpr OLECHAR kContentsName[] = OLESTR("Contents");

// Gathers the properties and writes them at once. Appending throws std::bad_alloc.
class ContentsWriter {
public:
    // Begins with the version.
    ContentsWriter();

    void Append(const Bstr& text);
    void Append(LONG number);

    ULONGLONG Size() const noexcept { return bytes_.size(); }
    // STG_E_*: as the stream gives it. STG_E_MEDIUMFULL: it took only a part.
    [[nodiscard]] HRESULT WriteTo(IStream& stream) const noexcept;

private:
    void AppendWord(ULONG word);

    std::string bytes_;
};

// Reads the properties one after the other. What was read before a failure stays with its reader.
class ContentsReader {
public:
    explicit ContentsReader(IStream& stream) noexcept : stream_(stream) {}

    // Comes first. E_FAIL: shorter than a version, or of a later format.
    [[nodiscard]] HRESULT ReadVersion() noexcept;
    // E_ACCESSDENIED: over 0x100000 bytes. E_FAIL: cut short, or without a terminator. E_OUTOFMEMORY.
    // `text` is untouched after a failure.
    [[nodiscard]] HRESULT Read(Bstr& text) noexcept;
    // E_FAIL: cut short. `number` is untouched then.
    [[nodiscard]] HRESULT Read(LONG& number) noexcept;

private:
    [[nodiscard]] HRESULT ReadBytes(void* bytes, ULONG count) noexcept;
    [[nodiscard]] HRESULT ReadWord(ULONG& word) noexcept;

    IStream& stream_;
};

// Makes the stream "Contents" of a storage, in place of one that is there, or opens it for reading.
[[nodiscard]] HRESULT CreateContents(IStorage& storage, ComPtr<IStream>& stream) noexcept;
[[nodiscard]] HRESULT OpenContents(IStorage& storage, ComPtr<IStream>& stream) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_CONTENTS_STREAM_H_
