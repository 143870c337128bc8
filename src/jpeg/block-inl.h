// Huffman decoding of one block of a scan; included once per instruction set.

#if defined(SCANSTEPS_JPEG_BLOCK_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_JPEG_BLOCK_INL_H_
#undef SCANSTEPS_JPEG_BLOCK_INL_H_
#else
#define SCANSTEPS_JPEG_BLOCK_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "jpeg/bits-inl.h"
#include "jpeg/huffman.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {

/// Number of entries of `place` below: coefficient indices 0 to 63, and the larger ones that a damaged block
/// or an end of block can produce, which all map to the position of 63.
constexpr std::size_t kPlaces = 256;

HWY_INLINE void AddDifference(std::uint16_t& prediction, std::uint64_t bits, unsigned size)
{
    prediction = std::uint16_t(prediction + extendMagnitude(bits, size));
}

HWY_NOINLINE bool DecodeLongDc(BitReader& reader, const DcTable& table, std::uint16_t& prediction)
{
    unsigned size = 0;
    const unsigned length = unsigned(table.codes.find(unsigned(reader.bits >> 48U), size));
    if (length == 0) return false;
    reader.skip(length);
    AddDifference(prediction, reader.bits, size);
    reader.skip(size);
    return true;
}

/// Decodes the DC coefficient; at least 32 valid bits remain.
HWY_INLINE bool DecodeDc(BitReader& reader, const DcTable& table, std::uint16_t& prediction)
{
    reader.refill();
    const std::uint32_t entry = table.fast[reader.bits >> (64 - DcTable::kBits)];
    if (HWY_LIKELY(entry != 0)) {
        AddDifference(prediction, reader.bits << DcTable::codeLength(entry), DcTable::size(entry));
        reader.skip(DcTable::length(entry));
        return true;
    }
    BitReader copy = reader;
    const bool found = DecodeLongDc(copy, table, prediction);
    reader = copy;
    reader.refill();
    return found;
}

/// Decodes a coefficient or end of block whose code is not in the look-up table. Returns the next index, plus
/// kEndOfBlock at an end of block, or 0 for an invalid code.
HWY_NOINLINE int DecodeLongAc(BitReader& reader, const AcTable& table, int k,
                              std::int16_t* HWY_RESTRICT block, const std::uint16_t* HWY_RESTRICT place)
{
    reader.refill();
    unsigned symbol = 0;
    const unsigned length = unsigned(table.codes.find(unsigned(reader.bits >> 48U), symbol));
    if (length == 0) return 0;
    reader.skip(length);
    const unsigned size = symbol & 15U;
    const unsigned run = symbol >> 4U;
    k += int(size != 0 || run == 15 ? run + 1 : AcTable::kEndOfBlock);
    if (k <= 64) block[place[k - 1]] = std::int16_t(extendMagnitude(reader.bits, size));
    reader.skip(size);
    return k;
}

/// Index of the last coefficient of a block that ended at k (see DecodeLongAc), or a negative number if the
/// block has too many coefficients.
HWY_INLINE int LastIndex(int k)
{
    if (k == 64) return 63;
    return k < int(AcTable::kEndOfBlock) + 64 ? k - int(AcTable::kEndOfBlock) - 1 : -1;
}

/// Stores the last one or two coefficients of the block, given by `entry`. Returns the index of the last one,
/// or -1.
HWY_INLINE int FinishBlock(BitReader& reader, std::uint64_t entry, int k, std::int16_t* HWY_RESTRICT block,
                           const std::uint16_t* HWY_RESTRICT place)
{
    const int k1 = k + AcTable::step1(entry);
    const int k2 = k1 + AcTable::step2(entry);
    block[place[k1 - 1]] = AcTable::value1(entry);
    if (HWY_UNLIKELY(k1 == 64 && k2 > 64)) {  // the second code already belongs to the next block
        reader.skip(AcTable::length1(entry));
        return 63;
    }
    if (k2 == 64)
        block[place[63]] =
            std::int16_t(extendMagnitude(reader.bits << AcTable::before(entry), AcTable::size(entry)));
    reader.skip(AcTable::length(entry));
    return LastIndex(k2);
}

enum class Step
{
    kNext,
    kRefilled,
    kEnd
};

/// One look-up of AC coefficients. At kEnd, k is the index of the block's last coefficient, or negative if
/// the bits are invalid; otherwise it is the next index. Consumes at most 26 bits, or refills (kRefilled).
HWY_INLINE Step AcStep(BitReader& reader, const AcTable& table, int& k, std::int16_t* HWY_RESTRICT block,
                       const std::uint16_t* HWY_RESTRICT place)
{
    const std::uint64_t entry = table.fast[reader.bits >> (64 - AcTable::kBits)];
    if (HWY_UNLIKELY(entry == 0)) {
        BitReader copy = reader;  // the address of `reader` must not escape, so that it stays in registers
        k = DecodeLongAc(copy, table, k, block, place);
        reader = copy;
        reader.refill();
        if (k > 0 && k < 64) return Step::kRefilled;
        k = LastIndex(k);
        return Step::kEnd;
    }
    const int k1 = k + AcTable::step1(entry);
    const int k2 = k1 + AcTable::step2(entry);
    if (k2 >= 64) {
        k = FinishBlock(reader, entry, k, block, place);
        return Step::kEnd;
    }
    // Store the first of two, then the last; a single coefficient is stored twice at the same position.
    block[place[k1 - 1]] = AcTable::value1(entry);
    block[place[k2 - 1]] =
        std::int16_t(extendMagnitude(reader.bits << AcTable::before(entry), AcTable::size(entry)));
    reader.skip(AcTable::length(entry));
    k = k2;
    return Step::kNext;
}

/// Decodes one block into `block` (all zero before), coefficient k at place[k]. Returns the index of the last
/// coefficient, or a negative number if the bits are invalid. EntropyFeed::check() must have succeeded where
/// it is required.
HWY_INLINE int DecodeBlock(BitReader& reader, const DcTable& dc, const AcTable& ac, std::uint16_t& prediction,
                           std::int16_t* HWY_RESTRICT block, const std::uint16_t* HWY_RESTRICT place)
{
    if (HWY_UNLIKELY(!DecodeDc(reader, dc, prediction))) return -1;
    block[place[0]] = std::int16_t(prediction);
    // After the DC coefficient (at most 24 bits) enough bits remain for one step, after a refill for two.
    int k = 1;
    Step step = AcStep(reader, ac, k, block, place);
    while (step != Step::kEnd) {
        reader.refill();
        step = AcStep(reader, ac, k, block, place);
        if (step == Step::kNext) step = AcStep(reader, ac, k, block, place);
    }
    return k;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#endif
