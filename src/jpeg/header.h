// The markers of a baseline JPEG stream before its scan: their contents and their validation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "jpeg/decode_error.h"

namespace scansteps::jpeg {

/// A Huffman table as in a DHT segment: the number of codes of each length 1 to 16, and the symbols in code
/// order.
struct HuffmanSpec
{
    std::array<std::uint8_t, 16> counts{};
    std::array<std::uint8_t, 256> symbols{};
};

/// A component: identifier, sampling factors and table numbers.
struct JpegComponent
{
    int id = 0;
    int horizontal = 1;
    int vertical = 1;
    int quantTable = 0;
    int dcTable = 0;
    int acTable = 0;
};

/// Everything needed to decode the scan. Initially holds the standard Huffman tables.
struct JpegHeader
{
    JpegHeader();

    int width = 0;
    int height = 0;
    std::array<JpegComponent, 3> components;              ///< Y, Cb, Cr
    std::array<std::array<std::uint8_t, 64>, 4> quant{};  ///< natural (row-major) order
    std::array<bool, 4> quantDefined{};
    std::array<HuffmanSpec, 2> dc;
    std::array<HuffmanSpec, 2> ac;
    int restartInterval = 0;     ///< MCUs between restart markers, 0 for none
    std::size_t scanOffset = 0;  ///< first byte of entropy-coded data
};

/// Position in an 8×8 block (row × 8 + column) of the coefficients in zig-zag order.
extern const std::array<std::uint8_t, 64> kJpegNaturalOrder;

/// Reads the markers of `file` up to and including the start of scan. Returns false, with a message in
/// `error`, when something is missing, damaged or not supported by BaselineJpegDecoder.
bool parseJpegHeader(std::span<const std::uint8_t> file, JpegHeader& header, JpegErrorText& error);

}  // namespace scansteps::jpeg
