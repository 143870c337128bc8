// Bit reader for the entropy-coded bytes of a scan; included once per instruction set. Stuffed zero bytes are
// removed in a small buffer first, so that eight bytes can be loaded at a time without checking any.

#if defined(SCANSTEPS_JPEG_BITS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_JPEG_BITS_INL_H_
#undef SCANSTEPS_JPEG_BITS_INL_H_
#else
#define SCANSTEPS_JPEG_BITS_INL_H_
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// The next bits, the first one in the top bit. `count` of them are valid; below them are bits of the byte at
/// `next`, which the next refill ORs in again.
struct BitReader
{
    std::uint64_t bits = 0;
    unsigned count = 0;
    const std::uint8_t* next = nullptr;
    const std::uint8_t* limit = nullptr;  ///< beyond it EntropyFeed::check() must precede a block

    /// Afterwards at least 56 bits are valid.
    HWY_INLINE void refill()
    {
        std::uint64_t word;
        std::memcpy(&word, next, sizeof word);
        bits |= __builtin_bswap64(word) >> count;
        next += (63 - count) >> 3U;
        count |= 56U;
    }

    HWY_INLINE void skip(unsigned length)
    {
        bits <<= length & 63U;
        count -= length;
    }
};

/// Fills the buffer of a BitReader from the scan, one restart interval after another.
class EntropyFeed
{
  public:
    EntropyFeed(const std::uint8_t* data, std::size_t size) : source_(data), sourceEnd_(data + size) {}

    /// Starts an interval at the current position.
    void start(BitReader& reader)
    {
        end_ = buffer_;
        ended_ = false;
        reader = BitReader();
        reader.next = buffer_;
        fill(reader);
    }

    /// Must be called before a block when reader.next is beyond reader.limit. Afterwards at least kBlockBytes
    /// bytes can be read. Returns false when the interval has no bits left.
    HWY_NOINLINE bool check(BitReader& reader)
    {
        if (!ended_) fill(reader);
        return reader.next <= reader.limit || !overrun(reader);
    }

    /// Whether more bits were consumed than the interval has.
    bool overrun(const BitReader& reader) const
    {
        return ended_ && (reader.next - buffer_) * 8 - std::ptrdiff_t(reader.count) > (end_ - buffer_) * 8;
    }

    /// Skips to after the next restart marker, which must have the number `expected`, and starts the interval
    /// there. Returns false when another marker or the end of the data comes first.
    bool restart(BitReader& reader, unsigned expected)
    {
        for (; sourceEnd_ - source_ >= 2; ++source_) {
            if (source_[0] != 0xFF || source_[1] == 0 || source_[1] == 0xFF) continue;
            if (source_[1] != 0xD0 + expected) return false;
            source_ += 2;
            start(reader);
            return true;
        }
        return false;
    }

  private:
    // A block takes at most 65 codes (the last one in excess) of 16 bits with 15 bits of value each, 252
    // bytes, and the reader loads up to 16 bytes ahead. An interval is followed by at least as many zeros.
    static constexpr std::ptrdiff_t kBlockBytes = 288;
    static constexpr std::ptrdiff_t kPadding = kBlockBytes + 24;
    static constexpr std::ptrdiff_t kChunk = 4096;

    void fill(BitReader& reader)
    {
        const std::ptrdiff_t rest = reader.next < end_ ? end_ - reader.next : 0;
        std::memmove(buffer_, reader.next, std::size_t(rest));
        end_ = buffer_ + rest;
        reader.next = buffer_;
        unstuff();
        if (ended_) std::memset(end_, 0, std::size_t(kPadding));
        reader.limit = ended_ ? end_ : end_ - kBlockBytes;
    }

    // Copies vectors up to the first 0xFF. Bytes stored beyond `end_` are overwritten later.
    void unstuff()
    {
        const hn::ScalableTag<std::uint8_t> d;
        const std::ptrdiff_t lanes = std::ptrdiff_t(hn::Lanes(d));
        const auto marker = hn::Set(d, 0xFF);
        std::uint8_t* const full = buffer_ + kChunk;
        while (end_ < full) {
            if (sourceEnd_ - source_ >= lanes) {
                const auto bytes = hn::LoadU(d, source_);
                hn::StoreU(bytes, d, end_);
                const std::ptrdiff_t plain = hn::FindFirstTrue(d, hn::Eq(bytes, marker));
                const std::ptrdiff_t copied = plain < 0 ? lanes : plain;
                source_ += copied;
                end_ += copied;
                if (plain < 0) continue;
            } else if (source_ == sourceEnd_) {
                ended_ = true;
                return;
            } else if (*source_ != 0xFF) {
                *end_++ = *source_++;
                continue;
            }
            if (!unstuffOne()) return;
        }
    }

    /// At a 0xFF: copies it if it is data, that is, followed by a zero (possibly after more 0xFF bytes);
    /// otherwise the interval ends here, before the marker.
    bool unstuffOne()
    {
        const std::uint8_t* at = source_;
        while (at < sourceEnd_ && *at == 0xFF) ++at;
        if (at == sourceEnd_ || *at != 0) {
            ended_ = true;
            return false;
        }
        *end_++ = 0xFF;
        source_ = at + 1;
        return true;
    }

    const std::uint8_t* source_;
    const std::uint8_t* sourceEnd_;
    std::uint8_t* end_ = buffer_;
    bool ended_ = false;
    alignas(64) std::uint8_t buffer_[kChunk + kPadding + HWY_MAX_BYTES];
};

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#endif
