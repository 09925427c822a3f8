#include "engine/items/contents_stream.h"

#include <vector>

namespace quorvane {

namespace {

constexpr ULONG kWrittenVersion = 0x0710;
constexpr ULONG kLatestVersion = 0x0A00;
constexpr ULONG kTerminatorSize = 2;
constexpr ULONG kLongestText = 0x100000;  // in bytes, terminator included

// UTF-16 little-endian, as it stands in the stream, into units of this machine.
OLECHAR UnitAt(const std::vector<BYTE>& bytes, size_t index) noexcept
{
    return static_cast<OLECHAR>(bytes[2 * index] | bytes[2 * index + 1] << 8);
}

HRESULT TextFromBytes(const std::vector<BYTE>& bytes, Bstr& text)
{
    const size_t units = bytes.size() / 2;
    if (UnitAt(bytes, units - 1) != 0)
        return E_FAIL;
    OleString result(units - 1, OLECHAR{});
    for (size_t i = 0; i < result.size(); ++i)
        result[i] = UnitAt(bytes, i);
    text = Bstr(result);
    return S_OK;
}

}  // namespace

ContentsWriter::ContentsWriter()
{
    AppendWord(kWrittenVersion);
}

void ContentsWriter::AppendWord(ULONG word)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes_.push_back(static_cast<char>(word >> shift & 0xFF));
}

void ContentsWriter::Append(LONG number)
{
    AppendWord(static_cast<ULONG>(number));
}

void ContentsWriter::Append(const Bstr& text)
{
    if (text.IsNull())
        return AppendWord(0);
    AppendWord(2 * text.Length() + kTerminatorSize);
    bytes_.reserve(bytes_.size() + 2 * text.Length() + kTerminatorSize);
    for (const OLECHAR unit : text.View()) {
        bytes_.push_back(static_cast<char>(unit & 0xFF));
        bytes_.push_back(static_cast<char>(unit >> 8));
    }
    bytes_.append(kTerminatorSize, '\0');
}

HRESULT ContentsWriter::WriteTo(IStream& stream) const noexcept
{
    const ULONG size = static_cast<ULONG>(bytes_.size());
    ULONG written = 0;
    const HRESULT hr = stream.Write(bytes_.data(), size, &written);
    if (FAILED(hr))
        return hr;
    return written == size ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT ContentsReader::ReadBytes(void* bytes, ULONG count) noexcept
{
    ULONG read = 0;
    const HRESULT hr = stream_.Read(bytes, count, &read);
    if (FAILED(hr))
        return hr;
    return read == count ? S_OK : E_FAIL;
}

HRESULT ContentsReader::ReadWord(ULONG& word) noexcept
{
    BYTE bytes[4];
    const HRESULT hr = ReadBytes(bytes, sizeof(bytes));
    if (SUCCEEDED(hr))
        word = bytes[0] | ULONG{bytes[1]} << 8 | ULONG{bytes[2]} << 16 | ULONG{bytes[3]} << 24;
    return hr;
}

HRESULT ContentsReader::ReadVersion() noexcept
{
    ULONG version = 0;
    const HRESULT hr = ReadWord(version);
    if (FAILED(hr))
        return hr;
    return version <= kLatestVersion ? S_OK : E_FAIL;
}

HRESULT ContentsReader::Read(LONG& number) noexcept
{
    ULONG word = 0;
    const HRESULT hr = ReadWord(word);
    if (SUCCEEDED(hr))
        number = static_cast<LONG>(word);
    return hr;
}

HRESULT ContentsReader::Read(Bstr& text) noexcept
try {
    ULONG size = 0;
    if (const HRESULT hr = ReadWord(size); FAILED(hr))
        return hr;
    if (size == 0) {
        text = Bstr();
        return S_OK;
    }
    if (size < kTerminatorSize)
        return E_FAIL;
    if (size > kLongestText)
        return E_ACCESSDENIED;
    std::vector<BYTE> bytes(size);
    if (const HRESULT hr = ReadBytes(bytes.data(), size); FAILED(hr))
        return hr;
    return TextFromBytes(bytes, text);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CreateContents(IStorage& storage, ComPtr<IStream>& stream) noexcept
{
    constexpr DWORD kMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
    return storage.CreateStream(kContentsName, kMode, 0, 0, stream.Put());
}

HRESULT OpenContents(IStorage& storage, ComPtr<IStream>& stream) noexcept
{
    return storage.OpenStream(kContentsName, nullptr, STGM_SHARE_EXCLUSIVE, 0, stream.Put());
}

}  // namespace quorvane
