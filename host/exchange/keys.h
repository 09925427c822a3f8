// host/exchange/keys.h: who a device is: the keys that it signs with and that others seal to.
//
// Cryptography is libsodium's: Ed25519 (crypto_sign) and X25519 (crypto_box). Private keys lie in memory that
// is locked and between guard pages, and are wiped when they go.
#ifndef QUORVANE_HOST_EXCHANGE_KEYS_H_
#define QUORVANE_HOST_EXCHANGE_KEYS_H_

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::host::exchange {

using SigningKey = std::array<unsigned char, 32>;  // the public half
using SealingKey = std::array<unsigned char, 32>;  // the public half
using Signature = std::array<unsigned char, 64>;

// The first 16 bytes of the signing key's BLAKE2b digest: who has it can tell whether a card is this
// device's.
struct DeviceId {
    std::array<unsigned char, 16> bytes{};
    auto operator<=>(const DeviceId&) const = default;
};

DeviceId IdOf(const SigningKey& key);
// 32 lowercase hexadecimal digits, and back; empty for any other text.
std::string TextOf(const DeviceId& id);
std::optional<DeviceId> ParseDeviceId(std::string_view text);

// What two people compare by telephone: eight words of five letters that can be pronounced, each for 16 bits
// of the id.
std::string FingerprintOf(const DeviceId& id);

// Bytes that nobody else is to see.
class SecretBytes {
public:
    explicit SecretBytes(std::size_t size);  // random
    unsigned char* data() const noexcept { return bytes_.get(); }
    std::size_t size() const noexcept { return size_; }

private:
    struct Wipe {
        void operator()(unsigned char* bytes) const noexcept;
    };
    std::unique_ptr<unsigned char, Wipe> bytes_;
    std::size_t size_;
};

// A device's own keys. Movable. Any thread.
class DeviceKeys {
public:
    // New ones.
    DeviceKeys();
    // Those of a seed (Seed), which is copied: to wipe its own is the caller's. Throws an Error (kRefused)
    // when it isn't 32 bytes.
    explicit DeviceKeys(std::string_view seed);

    // All that has to be kept of them; it lives as long as they do.
    const SecretBytes& Seed() const noexcept { return seed_; }

    const DeviceId& Id() const noexcept { return id_; }
    const SigningKey& Signing() const noexcept { return signing_; }
    const SealingKey& Sealing() const noexcept { return sealing_; }

    // Signs `bytes` for a purpose: what was signed for one passes for no other.
    Signature Sign(std::string_view purpose, std::string_view bytes) const;
    // Signs a digest (Digest::Finish) of what is too long to be held.
    Signature SignDigest(std::string_view purpose, const std::array<unsigned char, 64>& digest) const;

    // What was sealed to this device's sealing key (SealTo); empty when it wasn't.
    std::optional<SecretBytes> Unseal(std::string_view sealed) const;

private:
    void Derive();

    SecretBytes seed_;
    SecretBytes secretSigning_;
    SecretBytes secretSealing_;
    SigningKey signing_{};
    SealingKey sealing_{};
    DeviceId id_;
};

// Whether the holder of a signing key signed `bytes` for this purpose.
bool IsSignedBy(const SigningKey& key, std::string_view purpose, std::string_view bytes,
                const Signature& signature);
bool IsDigestSignedBy(const SigningKey& key, std::string_view purpose,
                      const std::array<unsigned char, 64>& digest, const Signature& signature);

// Seals a secret to a device: 48 bytes longer.
inline constexpr std::size_t kSealOverhead = 48;
std::string SealTo(const SealingKey& key, const SecretBytes& secret);

// BLAKE2b of 64 bytes over a message in pieces.
class Digest {
public:
    Digest();
    void Add(std::string_view bytes) noexcept;
    // The last call.
    std::array<unsigned char, 64> Finish() noexcept;

private:
    struct State;
    struct Free {
        void operator()(State* state) const noexcept;
    };
    std::unique_ptr<State, Free> state_;
};

// The first bytes of the digest of one text.
template <std::size_t Size>
std::array<unsigned char, Size> BeginningOfDigest(std::string_view bytes)
{
    static_assert(Size <= 64);
    Digest digest;
    digest.Add(bytes);
    const auto whole = digest.Finish();
    std::array<unsigned char, Size> beginning;
    std::copy_n(whole.begin(), Size, beginning.begin());
    return beginning;
}

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_KEYS_H_
