// Construction of the Huffman look-up tables, and the standard tables.
#include "jpeg/huffman.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <numeric>

namespace scansteps::jpeg {

namespace {

HuffmanSpec makeSpec(const std::array<std::uint8_t, 16>& counts, std::initializer_list<std::uint8_t> symbols)
{
    HuffmanSpec spec;
    spec.counts = counts;
    std::copy(symbols.begin(), symbols.end(), spec.symbols.begin());
    return spec;
}

/// Calls visit(length, code, symbol) for every code, in increasing order.
template <class Visit>
void forEachCode(const HuffmanSpec& spec, Visit visit)
{
    unsigned code = 0;
    std::size_t next = 0;
    for (unsigned length = 1; length <= 16; ++length, code <<= 1U)
        for (unsigned i = 0; i < spec.counts[length - 1]; ++i)
            visit(length, code++, unsigned(spec.symbols[next++ & 255U]));
}

}  // namespace

HuffmanSpec standardDcTable(int index)
{
    if (index == 0) return makeSpec({0, 1, 5, 1, 1, 1, 1, 1, 1}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    return makeSpec({0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
}

HuffmanSpec standardAcTable(int index)
{
    if (index == 0)
        return makeSpec(
            {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7D},
            {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
             0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xA1, 0x08, 0x23, 0x42, 0xB1, 0xC1, 0x15, 0x52,
             0xD1, 0xF0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0A, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x25,
             0x26, 0x27, 0x28, 0x29, 0x2A, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45,
             0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64,
             0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x83,
             0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
             0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6,
             0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2, 0xD3,
             0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8,
             0xE9, 0xEA, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA});
    return makeSpec(
        {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77},
        {0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13,
         0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xA1, 0xB1, 0xC1, 0x09, 0x23, 0x33, 0x52, 0xF0, 0x15, 0x62,
         0x72, 0xD1, 0x0A, 0x16, 0x24, 0x34, 0xE1, 0x25, 0xF1, 0x17, 0x18, 0x19, 0x1A, 0x26, 0x27, 0x28, 0x29,
         0x2A, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54,
         0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75,
         0x76, 0x77, 0x78, 0x79, 0x7A, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94,
         0x95, 0x96, 0x97, 0x98, 0x99, 0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3,
         0xB4, 0xB5, 0xB6, 0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2,
         0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEA,
         0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA});
}

bool isPrefixCode(const HuffmanSpec& spec)
{
    unsigned code = 0;
    for (unsigned length = 1; length <= 16; ++length) {
        code = code * 2 + spec.counts[length - 1];
        if (code > 1U << length) return false;
    }
    return true;
}

bool hasDcSizes(const HuffmanSpec& spec)
{
    const auto count = std::min(256, std::accumulate(spec.counts.begin(), spec.counts.end(), 0));
    return std::all_of(spec.symbols.begin(), spec.symbols.begin() + count,
                       [](std::uint8_t size) { return size <= 15; });
}

LongCodes::LongCodes(const HuffmanSpec& spec) : symbols_(spec.symbols)
{
    unsigned code = 0;
    unsigned index = 0;
    for (unsigned length = 1; length <= 16; ++length, code <<= 1U) {
        first_[length] = index - code;
        code += spec.counts[length - 1];
        index += spec.counts[length - 1];
        end_[length] = code << (16 - length);
    }
}

DcTable::DcTable(const HuffmanSpec& spec) : codes(spec)
{
    forEachCode(spec, [this](unsigned length, unsigned code, unsigned size) {
        if (length > kBits) return;
        const unsigned rest = kBits - length;
        std::fill_n(fast.begin() + (code << rest), 1U << rest, (length + size) | length << 8U | size << 16U);
    });
}

namespace {

/// Entry for a single coefficient or an end of block.
constexpr std::uint64_t singleEntry(unsigned length, unsigned symbol)
{
    const unsigned run = symbol >> 4U;
    const unsigned size = symbol & 15U;
    const unsigned step = size != 0 || run == 15 ? run + 1 : AcTable::kEndOfBlock;
    return (length + size) | std::uint64_t(step) << 8U | std::uint64_t(length) << 48U |
           std::uint64_t(size) << 56U;
}

/// Entry for an index: its first coefficient, combined with the second one if the index contains all of the
/// first and the code of the second.
std::uint64_t pairEntry(std::span<const std::uint64_t> singles, std::size_t index)
{
    const std::uint64_t first = singles[index];
    const unsigned length1 = AcTable::length(first);
    if (length1 == 0 || length1 >= AcTable::kBits || AcTable::step1(first) == int(AcTable::kEndOfBlock))
        return first;
    const std::size_t rest = (index << length1) % singles.size();
    const std::uint64_t second = singles[rest];
    if (second == 0 || length1 + AcTable::before(second) > AcTable::kBits) return first;
    const std::uint64_t value = std::uint64_t(index) << (64 - AcTable::kBits + AcTable::before(first));
    return (length1 + AcTable::length(second)) | std::uint64_t(AcTable::step1(first)) << 8U |
           std::uint64_t(std::uint16_t(extendMagnitude(value, AcTable::size(first)))) << 16U |
           std::uint64_t(AcTable::step1(second)) << 32U | std::uint64_t(length1) << 40U |
           std::uint64_t(length1 + AcTable::before(second)) << 48U |
           std::uint64_t(AcTable::size(second)) << 56U;
}

}  // namespace

AcTable::AcTable(const HuffmanSpec& spec) : codes(spec)
{
    std::array<std::uint64_t, 1U << kBits> singles{};
    forEachCode(spec, [&singles](unsigned length, unsigned code, unsigned symbol) {
        if (length > kBits) return;
        const unsigned rest = kBits - length;
        std::fill_n(singles.begin() + (code << rest), 1U << rest, singleEntry(length, symbol));
    });
    for (std::size_t i = 0; i < fast.size(); ++i) fast[i] = pairEntry(singles, i);
}

}  // namespace scansteps::jpeg
