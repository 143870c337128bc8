// Huffman tables of the baseline JPEG decoder: the standard ones, checks, and the look-up tables that turn
// the next bits of a scan into coefficients in one step.
#pragma once

#include <array>
#include <cstdint>

#include "io/baseline_jpeg_header.h"

namespace scansteps {

/// The standard tables for luma (0) and chroma (1) of ITU-T T.81 Annex K.3.
HuffmanSpec standardDcTable(int index);
HuffmanSpec standardAcTable(int index);

/// Whether the code lengths can belong to a prefix code, that is, do not run out of codes.
bool isPrefixCode(const HuffmanSpec& spec);

/// Whether all symbols are sizes of a DC difference (0 to 15).
bool hasDcSizes(const HuffmanSpec& spec);

/// Codes of any length, by comparison with the end of each length's range.
struct LongCodes
{
    explicit LongCodes(const HuffmanSpec& spec);

    /// Length of the code at the top of the 16 bits `next`, its symbol in `symbol`; 0 when there is none.
    int find(unsigned next, unsigned& symbol) const
    {
        for (unsigned length = 1; length <= 16; ++length) {
            if (next >= end_[length]) continue;
            symbol = symbols_[((next >> (16 - length)) + first_[length]) & 255U];
            return int(length);
        }
        return 0;
    }

  private:
    std::array<std::uint32_t, 17> end_{};    ///< one past the last code of this length, as 16 bits
    std::array<std::uint32_t, 17> first_{};  ///< index of a symbol minus its code, modulo 2^32
    std::array<std::uint8_t, 256> symbols_;
};

/// DC differences. An entry holds the bits that code and difference take together (0: use the long codes) and
/// the difference in the upper 16 bits.
struct DcTable
{
    static constexpr int kBits = 9;

    explicit DcTable(const HuffmanSpec& spec);

    std::array<std::uint32_t, 1U << kBits> fast{};
    LongCodes codes;
};

/// AC coefficients, up to two at once. See AcEntry for the entries.
struct AcTable
{
    static constexpr int kBits = 11;

    explicit AcTable(const HuffmanSpec& spec);

    std::array<std::uint64_t, 1U << kBits> fast{};
    LongCodes codes;
};

/// What the next bits of a block hold, in 64 bits so that one load fetches it:
///   bits 0-7   length of all of it; 0 when the table does not decide (see below)
///   bits 8-15  step from the next index to the one after the first coefficient: run + 1, or kEndOfBlock
///   bits 16-31 value of the first coefficient
///   bits 32-39 step over the second coefficient, 0 when there is none
///   bits 40-47 length of the first coefficient alone
///   bits 48-63 value of the second coefficient, or again of the first
/// Where the code is known but its value has more bits than the table, the length is 0, bits 8-15 hold the
/// step, 32-39 the size of the value and 40-47 the length of the code. An entry of 0 is a long or wrong code.
struct AcEntry
{
    static constexpr unsigned kEndOfBlock = 128;

    static unsigned length(std::uint64_t entry) { return entry & 255U; }
    static unsigned step1(std::uint64_t entry) { return (entry >> 8U) & 255U; }
    static std::int16_t value1(std::uint64_t entry) { return std::int16_t(entry >> 16U); }
    static unsigned step2(std::uint64_t entry) { return (entry >> 32U) & 255U; }
    static unsigned length1(std::uint64_t entry) { return (entry >> 40U) & 255U; }
    static std::int16_t value2(std::uint64_t entry) { return std::int16_t(entry >> 48U); }
};

/// The value whose `size` (1 to 15) magnitude bits are `bits` (T.81 F.2.2.1, EXTEND).
constexpr int extendMagnitude(unsigned bits, unsigned size)
{
    return bits < (1U << (size - 1)) ? int(bits) - int((1U << size) - 1) : int(bits);
}

}  // namespace scansteps
