#include "host/exchange/keys.h"

#include <sodium.h>

#include <cstring>
#include <new>

#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::size_t kSeedSize = crypto_kdf_KEYBYTES;
constexpr char kDerivation[crypto_kdf_CONTEXTBYTES + 1] = "qv3devic";
static_assert(crypto_sign_PUBLICKEYBYTES == std::tuple_size_v<SigningKey> && crypto_sign_BYTES == 64);
static_assert(crypto_box_PUBLICKEYBYTES == std::tuple_size_v<SealingKey>);
static_assert(crypto_box_SEALBYTES == kSealOverhead);

// The library is made ready before its first use, whatever thread that is on.
void Prepare()
{
    static const int prepared = sodium_init();
    if (prepared < 0)
        FailForNow("cannot use libsodium: it finds no source of randomness");
}

const unsigned char* BytesOf(std::string_view text) noexcept
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

// What is signed: the purpose, a zero, and the bytes.
std::string ForPurpose(std::string_view purpose, std::string_view bytes)
{
    std::string text(purpose);
    text += '\0';
    text += bytes;
    return text;
}

std::string_view ViewOf(const std::array<unsigned char, 64>& digest) noexcept
{
    return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

// Five letters for 16 bits: consonants of four bits, vowels of two.
void AppendWord(std::string& text, unsigned bits)
{
    constexpr char kConsonants[] = "bdfghjklmnprstvz";
    constexpr char kVowels[] = "aiou";
    text += kConsonants[bits >> 12 & 15];
    text += kVowels[bits >> 10 & 3];
    text += kConsonants[bits >> 6 & 15];
    text += kVowels[bits >> 4 & 3];
    text += kConsonants[bits & 15];
}

}  // namespace

DeviceId IdOf(const SigningKey& key)
{
    Prepare();
    DeviceId id;
    crypto_generichash(id.bytes.data(), id.bytes.size(), key.data(), key.size(), nullptr, 0);
    return id;
}

std::string TextOf(const DeviceId& id)
{
    char text[2 * sizeof id.bytes + 1];
    return sodium_bin2hex(text, sizeof text, id.bytes.data(), id.bytes.size());
}

std::optional<DeviceId> ParseDeviceId(std::string_view text)
{
    DeviceId id;
    std::size_t size = 0;
    if (text.size() != 2 * id.bytes.size() ||
        sodium_hex2bin(id.bytes.data(), id.bytes.size(), text.data(), text.size(), nullptr, &size, nullptr) !=
            0 ||
        TextOf(id) != text)
        return std::nullopt;
    return id;
}

std::string FingerprintOf(const DeviceId& id)
{
    std::string text;
    for (std::size_t at = 0; at < id.bytes.size(); at += 2) {
        if (at > 0)
            text += '-';
        AppendWord(text, static_cast<unsigned>(id.bytes[at] << 8 | id.bytes[at + 1]));
    }
    return text;
}

SecretBytes::SecretBytes(std::size_t size) : size_(size)
{
    Prepare();
    bytes_.reset(static_cast<unsigned char*>(sodium_malloc(size)));
    if (!bytes_)
        throw std::bad_alloc();
    randombytes_buf(bytes_.get(), size);
}

void SecretBytes::Wipe::operator()(unsigned char* bytes) const noexcept
{
    sodium_free(bytes);
}

DeviceKeys::DeviceKeys()
    : seed_(kSeedSize), secretSigning_(crypto_sign_SECRETKEYBYTES), secretSealing_(crypto_box_SECRETKEYBYTES)
{
    Derive();
}

DeviceKeys::DeviceKeys(std::string_view seed)
    : seed_(kSeedSize), secretSigning_(crypto_sign_SECRETKEYBYTES), secretSealing_(crypto_box_SECRETKEYBYTES)
{
    if (seed.size() != kSeedSize)
        Refuse("the device's key is of a wrong size");
    std::memcpy(seed_.data(), seed.data(), kSeedSize);
    Derive();
}

void DeviceKeys::Derive()
{
    const SecretBytes part(crypto_sign_SEEDBYTES);
    static_assert(crypto_sign_SEEDBYTES == crypto_box_SEEDBYTES);
    crypto_kdf_derive_from_key(part.data(), part.size(), 1, kDerivation, seed_.data());
    crypto_sign_seed_keypair(signing_.data(), secretSigning_.data(), part.data());
    crypto_kdf_derive_from_key(part.data(), part.size(), 2, kDerivation, seed_.data());
    crypto_box_seed_keypair(sealing_.data(), secretSealing_.data(), part.data());
    id_ = IdOf(signing_);
}

Signature DeviceKeys::Sign(std::string_view purpose, std::string_view bytes) const
{
    const std::string text = ForPurpose(purpose, bytes);
    Signature signature;
    crypto_sign_detached(signature.data(), nullptr, BytesOf(text), text.size(), secretSigning_.data());
    return signature;
}

Signature DeviceKeys::SignDigest(std::string_view purpose, const std::array<unsigned char, 64>& digest) const
{
    return Sign(purpose, ViewOf(digest));
}

std::optional<SecretBytes> DeviceKeys::Unseal(std::string_view sealed) const
{
    if (sealed.size() < kSealOverhead)
        return std::nullopt;
    SecretBytes secret(sealed.size() - kSealOverhead);
    if (crypto_box_seal_open(secret.data(), BytesOf(sealed), sealed.size(), sealing_.data(),
                             secretSealing_.data()) != 0)
        return std::nullopt;
    return secret;
}

bool IsSignedBy(const SigningKey& key, std::string_view purpose, std::string_view bytes,
                const Signature& signature)
{
    Prepare();
    const std::string text = ForPurpose(purpose, bytes);
    return crypto_sign_verify_detached(signature.data(), BytesOf(text), text.size(), key.data()) == 0;
}

bool IsDigestSignedBy(const SigningKey& key, std::string_view purpose,
                      const std::array<unsigned char, 64>& digest, const Signature& signature)
{
    return IsSignedBy(key, purpose, ViewOf(digest), signature);
}

std::string SealTo(const SealingKey& key, const SecretBytes& secret)
{
    std::string sealed(secret.size() + kSealOverhead, '\0');
    if (crypto_box_seal(reinterpret_cast<unsigned char*>(sealed.data()), secret.data(), secret.size(),
                        key.data()) != 0)
        Refuse("a device's sealing key is none");
    return sealed;
}

struct Digest::State {
    crypto_generichash_state state;
};

void Digest::Free::operator()(State* state) const noexcept
{
    delete state;
}

Digest::Digest() : state_(new State)
{
    Prepare();
    crypto_generichash_init(&state_->state, nullptr, 0, 64);
}

void Digest::Add(std::string_view bytes) noexcept
{
    crypto_generichash_update(&state_->state, BytesOf(bytes), bytes.size());
}

std::array<unsigned char, 64> Digest::Finish() noexcept
{
    std::array<unsigned char, 64> digest;
    crypto_generichash_final(&state_->state, digest.data(), digest.size());
    return digest;
}

}  // namespace quorvane::host::exchange
