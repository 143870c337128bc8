// Huffman-decodes one block of a scan, for inclusion into each target's code.

#if defined(SCANSTEPS_IO_BASELINE_JPEG_BLOCK_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_IO_BASELINE_JPEG_BLOCK_INL_H_
#undef SCANSTEPS_IO_BASELINE_JPEG_BLOCK_INL_H_
#else
#define SCANSTEPS_IO_BASELINE_JPEG_BLOCK_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "io/baseline_jpeg_bits-inl.h"
#include "io/baseline_jpeg_huffman.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {

/// Places for coefficient indices 0 to 63 and, all the same as 63, for those that a damaged block or the end
/// of a block can reach: 63, two runs of 16 and an end of block.
constexpr std::size_t kPlaces = 256;

/// Takes `size` (1 to 15) bits and extends their sign.
HWY_INLINE int TakeMagnitude(BitReader& reader, unsigned size)
{
    const int value = extendMagnitude(unsigned(reader.bits >> (64 - size)), size);
    reader.skip(size);
    return value;
}

HWY_INLINE bool DecodeDc(BitReader& reader, const DcTable& table, std::uint16_t& prediction)
{
    reader.refill();
    const std::uint32_t entry = table.fast[reader.bits >> (64 - DcTable::kBits)];
    const unsigned length = entry & 255U;
    if (HWY_LIKELY(length != 0)) {
        reader.skip(length);
        prediction = std::uint16_t(prediction + (entry >> 16U));
        return true;
    }
    unsigned size = 0;
    const int codeLength = table.codes.find(unsigned(reader.bits >> 48U), size);
    if (codeLength == 0) return false;
    reader.skip(unsigned(codeLength));
    if (size != 0) prediction = std::uint16_t(prediction + TakeMagnitude(reader, size));
    return true;
}

/// A coefficient that the look-up table does not hold. Returns the index behind it (64 or more: the block is
/// at its end, as in DecodeBlock), or 0 for a wrong code.
HWY_NOINLINE unsigned DecodeLongAc(BitReader& reader, const AcTable& table, std::uint64_t entry, unsigned k,
                                   std::int16_t* HWY_RESTRICT block, const std::uint16_t* HWY_RESTRICT place)
{
    reader.refill();
    unsigned step = AcEntry::step1(entry);
    unsigned size = AcEntry::step2(entry);
    unsigned length = AcEntry::length1(entry);
    if (length == 0) {
        unsigned symbol = 0;
        length = unsigned(table.codes.find(unsigned(reader.bits >> 48U), symbol));
        if (length == 0) return 0;
        size = symbol & 15U;
        const unsigned run = symbol >> 4U;
        step = size != 0 || run == 15 ? run + 1 : AcEntry::kEndOfBlock;
    }
    reader.skip(length);
    k += step;
    if (size != 0) block[place[k - 1]] = std::int16_t(TakeMagnitude(reader, size));
    return k;
}

/// Decodes one block into `block` (all zero before), coefficient k at place[k]. Returns the index of the last
/// coefficient, or -1 when the bits are no block. EntropyFeed must have said that a block can be read.
HWY_INLINE int DecodeBlock(BitReader& reader, const DcTable& dc, const AcTable& ac, std::uint16_t& prediction,
                           std::int16_t* HWY_RESTRICT block, const std::uint16_t* HWY_RESTRICT place)
{
    if (HWY_UNLIKELY(!DecodeDc(reader, dc, prediction))) return -1;
    block[place[0]] = std::int16_t(prediction);

    // k is the index of the next coefficient. An end of block adds 128 to it, which keeps the loop's end a
    // single comparison. A second coefficient of an entry is written even where there is none: then it is the
    // first once more, or the zero of an end of block, which goes to index 63, not reached yet.
    unsigned k = 1;
    for (;;) {
        reader.refill();
        const std::uint64_t entry = ac.fast[reader.bits >> (64 - AcTable::kBits)];
        if (HWY_UNLIKELY(AcEntry::length(entry) == 0)) {
            k = DecodeLongAc(reader, ac, entry, k, block, place);
            if (HWY_UNLIKELY(k == 0)) return -1;
            if (k >= 64) break;
            continue;
        }
        const unsigned k1 = k + AcEntry::step1(entry);
        const unsigned k2 = k1 + AcEntry::step2(entry);
        if (HWY_UNLIKELY(k1 == 64)) {  // the block ends here, and what follows belongs to the next
            reader.skip(AcEntry::length1(entry));
            block[place[63]] = AcEntry::value1(entry);
            return 63;
        }
        block[place[k1 - 1]] = AcEntry::value1(entry);
        block[place[k2 - 1]] = AcEntry::value2(entry);
        reader.skip(AcEntry::length(entry));
        k = k2;
        if (k >= 64) break;
    }
    if (k == 64) return 63;
    return k > AcEntry::kEndOfBlock && k <= AcEntry::kEndOfBlock + 63 ? int(k - AcEntry::kEndOfBlock) - 1
                                                                      : -1;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#endif
