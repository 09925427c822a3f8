#include "msgstore/props/packed_bytes.h"

#include <zlib.h>

#include <algorithm>
#include <bitset>
#include <memory>
#include <new>

#include "platform/com/mutex.h"

namespace quorvane {
namespace {

constexpr int kRawDeflate = -MAX_WBITS;
constexpr std::size_t kLargestDictionary = std::size_t{1} << MAX_WBITS;

// zlib reads what it takes by pointers that aren't to constants.
Bytef* Input(std::span<const BYTE> bytes) noexcept
{
    return const_cast<Bytef*>(bytes.data());
}

std::span<const BYTE> Front(std::span<const BYTE> bytes) noexcept
{
    return bytes.first(std::min(bytes.size(), kLargestDictionary));
}

class Packer {
public:
    Packer()
    {
        // Slower levels take half as much time again, and save two percent of a mail.
        constexpr int kLevel = 3;
        constexpr int kMemoryLevel = 8;
        if (deflateInit2(&stream_, kLevel, Z_DEFLATED, kRawDeflate, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc();
    }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;
    ~Packer() { deflateEnd(&stream_); }

    // How many bytes it took; 0 when `to` is too small.
    std::size_t Pack(std::span<const BYTE> bytes, std::span<const BYTE> dictionary,
                     std::span<BYTE> to) noexcept
    {
        deflateReset(&stream_);
        if (!dictionary.empty())
            deflateSetDictionary(&stream_, dictionary.data(), static_cast<uInt>(dictionary.size()));
        stream_.next_in = Input(bytes);
        stream_.avail_in = static_cast<uInt>(bytes.size());
        stream_.next_out = to.data();
        stream_.avail_out = static_cast<uInt>(to.size());
        return deflate(&stream_, Z_FINISH) == Z_STREAM_END ? stream_.total_out : 0;
    }

private:
    z_stream stream_ = {};
};

class Unpacker {
public:
    Unpacker()
    {
        if (inflateInit2(&stream_, MAX_WBITS) != Z_OK)
            throw std::bad_alloc();
    }
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;
    ~Unpacker() { inflateEnd(&stream_); }

    // Of a form that is kRawDeflate or MAX_WBITS.
    void Begin(int form, std::span<const BYTE> dictionary = {}) noexcept
    {
        inflateReset2(&stream_, form);
        if (!dictionary.empty())
            inflateSetDictionary(&stream_, dictionary.data(), static_cast<uInt>(dictionary.size()));
    }
    // zlib's code.
    int Unpack(std::span<const BYTE> packed, std::span<BYTE> bytes) noexcept
    {
        stream_.next_in = Input(packed);
        stream_.avail_in = static_cast<uInt>(packed.size());
        stream_.next_out = bytes.data();
        stream_.avail_out = static_cast<uInt>(bytes.size());
        return inflate(&stream_, Z_FINISH);
    }
    std::size_t InputLeft() const noexcept { return stream_.avail_in; }
    std::size_t Output() const noexcept { return stream_.total_out; }

private:
    z_stream stream_ = {};
};

// Packers or unpackers to use again: to make one takes as long as its work on a mail. Others are made where
// many threads want one at once, and go with their use.
template <class Tool>
class Idle {
public:
    // One for as long as this is there.
    class Borrowed {
    public:
        explicit Borrowed(Idle& home) : home_(home), tool_(home.Take()) {}
        Borrowed(const Borrowed&) = delete;
        Borrowed& operator=(const Borrowed&) = delete;
        ~Borrowed() { home_.Give(std::move(tool_)); }
        Tool* operator->() const noexcept { return tool_.get(); }

    private:
        Idle& home_;
        std::unique_ptr<Tool> tool_;
    };

    Idle() { idle_.reserve(kMostIdle); }

private:
    static constexpr std::size_t kMostIdle = 2;

    std::unique_ptr<Tool> Take()
    {
        {
            const MutexLock locked(lock_);
            if (!idle_.empty()) {
                std::unique_ptr<Tool> tool = std::move(idle_.back());
                idle_.pop_back();
                return tool;
            }
        }
        return std::make_unique<Tool>();
    }
    void Give(std::unique_ptr<Tool> tool) noexcept
    {
        const MutexLock locked(lock_);
        if (idle_.size() < kMostIdle)
            idle_.push_back(std::move(tool));
    }

    Mutex lock_;
    std::vector<std::unique_ptr<Tool>> idle_ QV_GUARDED_BY(lock_);
};

Idle<Unpacker>& Unpackers()
{
    static Idle<Unpacker> idle;
    return idle;
}

// The two bytes that begin a zlib stream without a dictionary of its own.
bool BeginsAsZlib(std::span<const BYTE> value) noexcept
{
    constexpr BYTE kDeflate = 8;
    constexpr BYTE kHasDictionary = 0x20;
    return value.size() > 2 && (value[0] & 0x0F) == kDeflate && (value[1] & kHasDictionary) == 0 &&
           (value[0] * 256u + value[1]) % 31 == 0;
}

}  // namespace

bool AppendPacked(std::span<const BYTE> bytes, std::span<const BYTE> dictionary, std::size_t limit, Bytes& to)
{
    static Idle<Packer> idle;
    const std::size_t before = to.size();
    to.resize(before + limit);
    const Idle<Packer>::Borrowed packer(idle);
    const std::size_t size = packer->Pack(bytes, Front(dictionary), std::span<BYTE>(to).subspan(before));
    to.resize(before + size);
    return size != 0;
}

bool Unpack(std::span<const BYTE> packed, std::span<const BYTE> dictionary, std::span<BYTE> bytes)
{
    const Idle<Unpacker>::Borrowed unpacker(Unpackers());
    unpacker->Begin(kRawDeflate, Front(dictionary));
    return unpacker->Unpack(packed, bytes) == Z_STREAM_END && unpacker->InputLeft() == 0 &&
           unpacker->Output() == bytes.size();
}

Bytes DictionaryOf(std::span<const BYTE> value)
{
    Bytes dictionary;
    if (!BeginsAsZlib(value))
        return dictionary;
    dictionary.resize(kLargestDictionary);
    const Idle<Unpacker>::Borrowed unpacker(Unpackers());
    unpacker->Begin(MAX_WBITS);
    const int code = unpacker->Unpack(value, dictionary);
    // More than there is room for isn't needed.
    const bool isStream = code == Z_STREAM_END || unpacker->Output() == kLargestDictionary;
    dictionary.resize(isStream ? unpacker->Output() : 0);
    return dictionary;
}

std::uint32_t Checksum(std::span<const BYTE> bytes) noexcept
{
    return static_cast<std::uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

bool LooksPacked(std::span<const BYTE> bytes) noexcept
{
    // Of 256 bytes drawn evenly from as many values some 221 differ after 512 draws; texts have a hundred.
    constexpr std::size_t kDrawn = 512;
    constexpr std::size_t kManyDiffer = 190;
    if (bytes.size() < kDrawn)
        return false;
    std::bitset<256> seen;
    for (const BYTE byte : bytes.first(kDrawn))
        seen.set(byte);
    return seen.count() > kManyDiffer;
}

}  // namespace quorvane
