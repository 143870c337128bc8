// Huffman tables of the baseline JPEG decoder: the standard tables, validation, and look-up tables that
// decode coefficients from the next bits of a scan in one step.
#pragma once

#include <array>
#include <cstdint>

#include "jpeg/header.h"

namespace scansteps::jpeg {

/// The standard tables for luma (0) and chroma (1) of ITU-T T.81 Annex K.3.
HuffmanSpec standardDcTable(int index);
HuffmanSpec standardAcTable(int index);

/// Whether a prefix code with these code lengths exists.
bool isPrefixCode(const HuffmanSpec& spec);

/// Whether all symbols are valid sizes of a DC difference (0 to 15).
bool hasDcSizes(const HuffmanSpec& spec);

/// Decodes codes of any length by comparison with the end of each length's range.
struct LongCodes
{
    explicit LongCodes(const HuffmanSpec& spec);

    /// Length of the code at the top of the 16 bits `next`, or 0 if there is none. Stores its symbol in
    /// `symbol`.
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

/// DC differences. Layout of an entry; 0 marks a code that is too long for the table or invalid:
///   bits 0-7   total length of code and difference
///   bits 8-15  length of the code
///   bits 16-23 length of the difference
struct DcTable
{
    static constexpr unsigned kBits = 9;

    explicit DcTable(const HuffmanSpec& spec);

    static unsigned length(std::uint32_t entry) { return entry & 255U; }
    static unsigned codeLength(std::uint32_t entry) { return (entry >> 8U) & 255U; }
    static unsigned size(std::uint32_t entry) { return (entry >> 16U) & 255U; }

    std::array<std::uint32_t, 1U << kBits> fast{};
    LongCodes codes;
};

/// AC coefficients, one or two at once. An entry holds two if its index contains all of the first and the
/// code of the second. The last value is not stored but read from the bits, so that large values need no
/// special case. Layout of an entry; 0 marks a code that is too long for the table or invalid:
///   bits 0-7   total length, including the last value
///   bits 8-15  index step over the first coefficient: run + 1, or kEndOfBlock
///   bits 16-31 value of the first of two coefficients
///   bits 32-39 index step over the second coefficient, 0 if there is none
///   bits 40-47 length of the first of two coefficients
///   bits 48-55 total length before the last value
///   bits 56-63 size of the last value in bits, 0 for a value of 0
struct AcTable
{
    static constexpr unsigned kBits = 11;
    static constexpr unsigned kEndOfBlock = 128;

    explicit AcTable(const HuffmanSpec& spec);

    static unsigned length(std::uint64_t entry) { return entry & 255U; }
    static int step1(std::uint64_t entry) { return int((entry >> 8U) & 255U); }
    static std::int16_t value1(std::uint64_t entry) { return std::int16_t(entry >> 16U); }
    static int step2(std::uint64_t entry) { return int((entry >> 32U) & 255U); }
    static unsigned length1(std::uint64_t entry) { return (entry >> 40U) & 255U; }
    static unsigned before(std::uint64_t entry) { return (entry >> 48U) & 255U; }
    static unsigned size(std::uint64_t entry) { return unsigned(entry >> 56U); }

    std::array<std::uint64_t, 1U << kBits> fast{};
    LongCodes codes;
};

/// The value whose `size` (0 to 15) magnitude bits are the top bits of `bits` (T.81 F.2.2.1, EXTEND).
constexpr int extendMagnitude(std::uint64_t bits, unsigned size)
{
    const auto negative = ~std::uint64_t(std::int64_t(bits) >> 63);  // all ones if the top bit is 0
    const std::uint64_t magnitude = (bits >> 1U) >> (~size & 63U);
    return int(magnitude) - int(negative & ~(~std::uint64_t{0} << size));
}

}  // namespace scansteps::jpeg
