#include "host/exchange/seal.h"

#include <sodium.h>

#include <algorithm>
#include <stdexcept>

#include "host/deflate/deflate.h"
#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kPackageMagic("QV3PACK\1", 8);
constexpr std::string_view kPackagePurpose = "quorvane3 package";

constexpr std::size_t kKeySize = crypto_secretstream_xchacha20poly1305_KEYBYTES;
constexpr std::size_t kStreamHeaderSize = crypto_secretstream_xchacha20poly1305_HEADERBYTES;
constexpr std::size_t kChunkOverhead = crypto_secretstream_xchacha20poly1305_ABYTES;
constexpr std::size_t kSealedKeySize = kKeySize + kSealOverhead;
constexpr std::size_t kIdSize = sizeof(DeviceId::bytes);
constexpr std::size_t kSignatureSize = sizeof(Signature);
static_assert(kSealedKeySize == 80 && kStreamHeaderSize == 24);

// Before the receivers: magic, sender, epoch, sequence, kind, content's size, number of receivers.
constexpr std::size_t kFixedSize = 8 + 16 + 16 + 8 + 1 + 8 + 2;
// Each of them.
constexpr std::size_t kReceiverSize = kIdSize + sizeof(std::uint64_t) + kSealedKeySize;

constexpr std::size_t kChunk = std::size_t{256} << 10;
constexpr std::size_t kLargestChunk = 1 + kChunk + kChunkOverhead;
constexpr char kAsItIs = 0;
constexpr char kDeflated = 1;

unsigned char* RawOf(std::string& text) noexcept
{
    return reinterpret_cast<unsigned char*>(text.data());
}
const unsigned char* RawOf(std::string_view text) noexcept
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Piece(const ByteSource& source, std::uint64_t at, std::size_t size)
{
    std::string bytes(size, '\0');
    source.ReadAt(at, bytes.data(), size);
    return bytes;
}

std::string DigestText(std::string_view bytes)
{
    Digest digest;
    digest.Add(bytes);
    const auto finished = digest.Finish();
    return {finished.begin(), finished.end()};
}

std::string Kept(const std::string& piece)
{
    const std::string deflated = Deflate(piece);
    return deflated.size() < piece.size() ? kDeflated + deflated : kAsItIs + piece;
}

std::string WriteHeader(const PackageLabel& label, const std::vector<Receiver>& receivers,
                        std::uint64_t contentSize, const SecretBytes& key)
{
    WireWriter header;
    header.Put(kPackageMagic).Put(label.sender.bytes).Put(label.epoch).Put(label.sequence);
    header.Put(static_cast<std::uint8_t>(label.kind)).Put(contentSize);
    header.Put(static_cast<std::uint16_t>(receivers.size()));
    for (const Receiver& receiver : receivers)
        header.Put(receiver.id.bytes).Put(receiver.previous).Put(SealTo(receiver.sealing, key));
    return header.Bytes();
}

// Encrypts content chunk by chunk.
class ChunkWriter {
public:
    explicit ChunkWriter(const SecretBytes& key)
    {
        std::string header(kStreamHeaderSize, '\0');
        crypto_secretstream_xchacha20poly1305_init_push(&state_, RawOf(header), key.data());
        header_ = header;
    }
    ChunkWriter(const ChunkWriter&) = delete;
    ChunkWriter& operator=(const ChunkWriter&) = delete;
    ~ChunkWriter() { sodium_memzero(&state_, sizeof state_); }

    const std::string& Header() const noexcept { return header_; }

    std::string Encrypt(const std::string& piece, std::string_view bound, bool isLast)
    {
        const std::string kept = Kept(piece);
        std::string chunk(kept.size() + kChunkOverhead, '\0');
        crypto_secretstream_xchacha20poly1305_push(
            &state_, RawOf(chunk), nullptr, RawOf(std::string_view(kept)), kept.size(), RawOf(bound),
            bound.size(),
            isLast ? crypto_secretstream_xchacha20poly1305_TAG_FINAL
                   : crypto_secretstream_xchacha20poly1305_TAG_MESSAGE);
        return WireWriter().Put(static_cast<std::uint32_t>(chunk.size())).Put(chunk).Bytes();
    }

private:
    crypto_secretstream_xchacha20poly1305_state state_;
    std::string header_;
};

// Decrypts what a ChunkWriter made.
class ChunkReader {
public:
    // Throws an Error when the stream's header is none.
    ChunkReader(std::string_view header, const SecretBytes& key, const std::string& what) : what_(what)
    {
        if (crypto_secretstream_xchacha20poly1305_init_pull(&state_, RawOf(header), key.data()) != 0)
            Refuse(what_ + " has no proper stream header");
    }
    ChunkReader(const ChunkReader&) = delete;
    ChunkReader& operator=(const ChunkReader&) = delete;
    ~ChunkReader() { sodium_memzero(&state_, sizeof state_); }

    std::string Decrypt(std::string_view chunk, std::string_view bound, bool& isLast)
    {
        if (chunk.size() <= kChunkOverhead)
            Refuse(what_ + " has a chunk that is too short");
        std::string kept(chunk.size() - kChunkOverhead, '\0');
        unsigned char tag = 0;
        if (crypto_secretstream_xchacha20poly1305_pull(&state_, RawOf(kept), nullptr, &tag, RawOf(chunk),
                                                       chunk.size(), RawOf(bound), bound.size()) != 0)
            Refuse(what_ + " has content that its sender didn't seal");
        isLast = tag == crypto_secretstream_xchacha20poly1305_TAG_FINAL;
        return Restore(kept);
    }

private:
    std::string Restore(const std::string& kept) const
    {
        const std::string_view bytes = std::string_view(kept).substr(1);
        if (kept[0] == kAsItIs)
            return std::string(bytes);
        auto piece = kept[0] == kDeflated ? Inflate(bytes, kChunk) : std::nullopt;
        if (!piece)
            Refuse(what_ + " has a chunk that can't be inflated");
        return *std::move(piece);
    }

    crypto_secretstream_xchacha20poly1305_state state_;
    const std::string& what_;
};

// The most bytes that a package can have.
std::uint64_t LongestOf(std::uint64_t header, std::uint64_t contentSize) noexcept
{
    constexpr std::uint64_t kPerChunk = sizeof(std::uint32_t) + 1 + kChunkOverhead;
    const std::uint64_t chunks = contentSize / kChunk + 1;
    return header + contentSize + chunks * kPerChunk + kSignatureSize;
}

}  // namespace

void Seal(const DeviceKeys& sender, const PackageLabel& label, const std::vector<Receiver>& receivers,
          const ByteSource& content, const ByteSink& package)
{
    if (receivers.empty() || receivers.size() > kMostReceivers)
        Refuse("a package can't have " + std::to_string(receivers.size()) + " receivers");
    for (const Receiver& receiver : receivers)
        if (receiver.previous >= label.sequence)
            Refuse("a package can't come before the one that is before it");
    const SecretBytes key(kKeySize);
    ChunkWriter chunks(key);
    const std::string header = WriteHeader(label, receivers, content.Size(), key) + chunks.Header();
    Digest digest;
    const auto put = [&](std::string_view bytes) {
        digest.Add(bytes);
        package(bytes);
    };
    put(header);
    std::string bound = DigestText(header);
    const std::uint64_t size = content.Size();
    std::uint64_t at = 0;
    do {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, size - at));
        const std::string piece = Piece(content, at, count);
        at += count;
        put(chunks.Encrypt(piece, bound, at == size));
        bound.clear();
    } while (at < size);
    const Signature signature = sender.SignDigest(kPackagePurpose, digest.Finish());
    package({reinterpret_cast<const char*>(signature.data()), signature.size()});
}

SealedPackage::SealedPackage(const ByteSource& package, std::string what)
    : package_(package), what_(std::move(what))
{
    const std::uint64_t size = package.Size();
    if (size < kFixedSize + kStreamHeaderSize + kSignatureSize)
        Refuse(what_ + " is too short for a package");
    const std::string fixed = Piece(package, 0, kFixedSize);
    WireReader reader(fixed, what_);
    if (reader.Take(kPackageMagic.size()) != kPackageMagic)
        Refuse(what_ + " is no package, or of a later format");
    label_.sender.bytes = reader.GetBytes<kIdSize>();
    label_.epoch = reader.GetBytes<sizeof(Epoch)>();
    label_.sequence = reader.Get<std::uint64_t>();
    const auto kind = reader.Get<std::uint8_t>();
    contentSize_ = reader.Get<std::uint64_t>();
    const std::size_t receivers = reader.Get<std::uint16_t>();
    if (kind < static_cast<std::uint8_t>(PackageKind::kItems) ||
        kind > static_cast<std::uint8_t>(PackageKind::kFlags))
        Refuse(what_ + " is of an unknown kind");
    label_.kind = static_cast<PackageKind>(kind);
    if (label_.sequence == 0 || receivers == 0 || receivers > kMostReceivers)
        Refuse(what_ + " has no proper number, or no receivers, or too many");
    const std::size_t whole = kFixedSize + receivers * kReceiverSize + kStreamHeaderSize;
    if (size < whole + kSignatureSize)
        Refuse(what_ + " is cut short");
    if (size > LongestOf(whole, contentSize_))
        Refuse(what_ + " is longer than its content can be");
    header_ = Piece(package, 0, whole);
}

void SealedPackage::Verify(const SigningKey& sender, const std::function<void(std::uint64_t)>& hasRead)
{
    if (IdOf(sender) != label_.sender)
        Refuse(what_ + " names another sender than the one it is checked for");
    Digest digest;
    const std::uint64_t end = package_.Size() - kSignatureSize;
    for (std::uint64_t at = 0; at < end;) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, end - at));
        digest.Add(Piece(package_, at, count));
        at += count;
        if (hasRead)
            hasRead(at);
    }
    const std::string last = Piece(package_, end, kSignatureSize);
    if (!IsDigestSignedBy(sender, kPackagePurpose, digest.Finish(),
                          WireReader(last, what_).GetBytes<kSignatureSize>()))
        Refuse(what_ + " isn't signed by the device that it names");
    isVerified_ = true;
}

std::optional<SealedPackage::Entry> SealedPackage::EntryOf(const DeviceId& device) const
{
    WireReader reader(std::string_view(header_).substr(kFixedSize), what_);
    while (reader.Left() > kStreamHeaderSize) {
        const bool isIts = reader.GetBytes<kIdSize>() == device.bytes;
        const auto previous = reader.Get<std::uint64_t>();
        const std::string_view sealed = reader.Take(kSealedKeySize);
        if (isIts)
            return Entry{previous, std::string(sealed)};
    }
    return std::nullopt;
}

std::vector<std::pair<DeviceId, std::uint64_t>> SealedPackage::Receivers() const
{
    std::vector<std::pair<DeviceId, std::uint64_t>> receivers;
    WireReader reader(std::string_view(header_).substr(kFixedSize), what_);
    while (reader.Left() > kStreamHeaderSize) {
        const DeviceId id{reader.GetBytes<kIdSize>()};
        receivers.emplace_back(id, reader.Get<std::uint64_t>());
        reader.Take(kSealedKeySize);
    }
    return receivers;
}

std::optional<std::uint64_t> SealedPackage::PreviousFor(const DeviceId& device) const
{
    const auto entry = EntryOf(device);
    if (entry && entry->previous >= label_.sequence)
        Refuse(what_ + " comes before the one that is before it");
    return entry ? std::optional(entry->previous) : std::nullopt;
}

void SealedPackage::Unseal(const DeviceKeys& own, const ByteSink& content) const
{
    if (!isVerified_)
        throw std::logic_error("a package is unsealed that wasn't verified");
    const auto entry = EntryOf(own.Id());
    if (!entry)
        Refuse(what_ + " isn't for this device");
    const auto key = own.Unseal(entry->sealedKey);
    if (!key)
        Refuse(what_ + " has a key that isn't sealed to this device");
    ChunkReader chunks(std::string_view(header_).substr(header_.size() - kStreamHeaderSize), *key, what_);
    const std::uint64_t end = package_.Size() - kSignatureSize;
    std::string bound = DigestText(header_);
    std::uint64_t given = 0;
    bool isLast = false;
    for (std::uint64_t at = header_.size(); at < end || !isLast;) {
        if (isLast || end - at < sizeof(std::uint32_t))
            Refuse(what_ + (isLast ? " has content behind its end" : " has content that is cut short"));
        const std::string prefix = Piece(package_, at, sizeof(std::uint32_t));
        const auto size = WireReader(prefix, what_).Get<std::uint32_t>();
        at += prefix.size();
        if (size > kLargestChunk || size > end - at)
            Refuse(what_ + " has a chunk that is too long");
        const std::string piece = chunks.Decrypt(Piece(package_, at, size), bound, isLast);
        at += size;
        bound.clear();
        given += piece.size();
        if (given > contentSize_)
            Refuse(what_ + " holds more than it says");
        content(piece);
    }
    if (given != contentSize_)
        Refuse(what_ + " holds less than it says");
}

}  // namespace quorvane::host::exchange
