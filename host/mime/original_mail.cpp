#include "host/mime/original_mail.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <optional>

#include "host/deflate/deflate.h"
#include "host/mail/mail_reader.h"
#include "host/mime/mapi_read.h"
#include "host/mime/value_reader.h"
#include "host/mime/value_writer.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

constexpr std::size_t kPackedPiece = std::size_t{64} << 10;
// Mail is mostly text or base64: higher levels cost twice the time and save a few percent.
constexpr int kLevel = 4;

// A mail of base64 or quoted-printable is at most this many times as large as what the message holds of it;
// what no reader shows (preambles, comments) may be as large as this besides. No more is unpacked: a few
// megabytes can be packed gigabytes.
constexpr std::uint64_t kLargestGrowth = 4;
constexpr std::uint64_t kLargestRest = std::uint64_t{64} << 20;

std::uint64_t LargestOriginal(IMessage& message)
{
    const std::optional<LONG> size = ReadLong(message, PR_MESSAGE_SIZE);
    if (!size || *size < 0)
        return kLargestMail;
    return std::min(kLargestMail, kLargestRest + kLargestGrowth * static_cast<std::uint64_t>(*size));
}

// The property's tag; PR_NULL when no message of the store has it yet and `flags` don't ask to name it.
HRESULT OriginalTag(IMessage& message, ULONG flags, ULONG& tag)
{
    GUID set = kOriginalMailSet;
    OleString text = kOriginalMailName;
    MAPINAMEID name = {};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = text.data();
    MAPINAMEID* names = &name;
    MapiMemory tags;
    const HRESULT hr = message.GetIDsFromNames(1, &names, flags, tags.Put<SPropTagArray>());
    tag = PR_NULL;
    if (SUCCEEDED(hr) && tags.As<SPropTagArray>() && PROP_ID(tags.As<SPropTagArray>()->aulPropTag[0]) != 0)
        tag = CHANGE_PROP_TYPE(tags.As<SPropTagArray>()->aulPropTag[0], PT_BINARY);
    return hr;
}

// A zlib stream in one direction, ended with it.
class Deflater {
public:
    Deflater() { ready_ = deflateInit(&stream_, kLevel) == Z_OK; }
    ~Deflater()
    {
        if (ready_)
            deflateEnd(&stream_);
    }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    HRESULT Put(std::string_view bytes, bool last, ValueWriter& to)
    {
        if (!ready_)
            return E_OUTOFMEMORY;
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        stream_.avail_in = static_cast<uInt>(bytes.size());
        do {
            stream_.next_out = reinterpret_cast<Bytef*>(packed_.data());
            stream_.avail_out = static_cast<uInt>(packed_.size());
            deflate(&stream_, last ? Z_FINISH : Z_NO_FLUSH);
            const HRESULT hr = to.Put({packed_.data(), packed_.size() - stream_.avail_out});
            if (FAILED(hr))
                return hr;
        } while (stream_.avail_out == 0);
        return S_OK;
    }

private:
    z_stream stream_ = {};
    bool ready_ = false;
    std::array<char, kPackedPiece> packed_;
};

class Inflater {
public:
    // largest  in bytes unpacked; more is MAPI_E_CORRUPT_DATA.
    explicit Inflater(std::uint64_t largest) : largest_(largest) { ready_ = inflateInit(&stream_) == Z_OK; }
    ~Inflater()
    {
        if (ready_)
            inflateEnd(&stream_);
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    HRESULT Put(std::string_view packed, MailBytes& bytes)
    {
        if (!ready_)
            return E_OUTOFMEMORY;
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
        stream_.avail_in = static_cast<uInt>(packed.size());
        do {
            stream_.next_out = reinterpret_cast<Bytef*>(piece_.data());
            stream_.avail_out = static_cast<uInt>(piece_.size());
            const int result = inflate(&stream_, Z_NO_FLUSH);
            ended_ = result == Z_STREAM_END;
            if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
                return result == Z_MEM_ERROR ? E_OUTOFMEMORY : MAPI_E_CORRUPT_DATA;
            bytes.Append({piece_.data(), piece_.size() - stream_.avail_out});
            if (bytes.Size() > largest_ || (ended_ && stream_.avail_in > 0))
                return MAPI_E_CORRUPT_DATA;
        } while (stream_.avail_out == 0 && !ended_);
        return bytes.Result();
    }
    [[nodiscard]] bool Ended() const noexcept { return ended_; }

private:
    const std::uint64_t largest_;
    z_stream stream_ = {};
    bool ready_ = false;
    bool ended_ = false;
    std::array<char, kPackedPiece> piece_;
};

// What most mails are: one piece.
HRESULT PutSmall(const MailBytes& bytes, ValueWriter& to)
{
    std::string whole(static_cast<std::size_t>(bytes.Size()), '\0');
    whole.resize(bytes.Read(0, whole.data(), whole.size()));
    return SUCCEEDED(bytes.Result()) ? to.Put(host::Deflate(whole)) : bytes.Result();
}

}  // namespace

HRESULT KeepOriginal(const MailBytes& bytes, IMessage& message)
{
    ULONG tag = PR_NULL;
    HRESULT hr = OriginalTag(message, MAPI_CREATE, tag);
    if (FAILED(hr))
        return hr;
    ValueWriter value(message, tag);
    if (bytes.Size() <= kPackedPiece) {
        hr = PutSmall(bytes, value);
        return SUCCEEDED(hr) ? value.End() : hr;
    }
    Deflater deflater;
    std::string piece;
    std::uint64_t at = 0;
    do {
        piece.resize(kPackedPiece);
        piece.resize(bytes.Read(at, piece.data(), piece.size()));
        at += piece.size();
        if (FAILED(bytes.Result()))
            return bytes.Result();
        hr = deflater.Put(piece, at == bytes.Size(), value);
    } while (SUCCEEDED(hr) && at < bytes.Size());
    return SUCCEEDED(hr) ? value.End() : hr;
}

HRESULT ReadOriginal(IMessage& message, MailBytes& bytes)
{
    bytes.Clear();
    ULONG tag = PR_NULL;
    HRESULT hr = OriginalTag(message, 0, tag);
    ValueReader value;
    if (SUCCEEDED(hr) && tag != PR_NULL)
        hr = value.OpenBinary(message, tag);
    if (FAILED(hr) || !value.Exists())
        return FAILED(hr) ? hr : MAPI_E_NOT_FOUND;
    Inflater inflater(LargestOriginal(message));
    HRESULT inflated = S_OK;
    hr = value.Read([&](std::string_view piece) {
        inflated = inflater.Put(piece, bytes);
        return SUCCEEDED(inflated);
    });
    if (FAILED(hr) || FAILED(inflated))
        return FAILED(hr) ? hr : inflated;
    return inflater.Ended() ? S_OK : MAPI_E_CORRUPT_DATA;
}

}  // namespace quorvane
