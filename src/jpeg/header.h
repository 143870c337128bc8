// The markers of a baseline JPEG stream in front of its scan: what they say, and what is refused.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "jpeg/decode_error.h"

namespace scansteps::jpeg {

/// A Huffman table as a DHT segment describes it: how many codes there are of each length 1 to 16, and the
/// symbols in the order of their codes.
struct HuffmanSpec
{
    std::array<std::uint8_t, 16> counts{};
    std::array<std::uint8_t, 256> symbols{};
};

/// One component: identifier, sampling factors and table numbers.
struct JpegComponent
{
    int id = 0;
    int horizontal = 1;
    int vertical = 1;
    int quantTable = 0;
    int dcTable = 0;
    int acTable = 0;
};

/// Everything the scan needs. Parsing fills it in; a fresh one holds the standard Huffman tables.
struct JpegHeader
{
    JpegHeader();

    int width = 0;
    int height = 0;
    std::array<JpegComponent, 3> components;              ///< Y, Cb, Cr
    std::array<std::array<std::uint8_t, 64>, 4> quant{};  ///< natural (row by row) order
    std::array<bool, 4> quantDefined{};
    std::array<HuffmanSpec, 2> dc;
    std::array<HuffmanSpec, 2> ac;
    int restartInterval = 0;     ///< MCUs between restart markers, 0 for none
    std::size_t scanOffset = 0;  ///< first byte of entropy-coded data
};

/// Position in an 8×8 block (row × 8 + column) of the coefficients in zig-zag order.
extern const std::array<std::uint8_t, 64> kJpegNaturalOrder;

/// Reads the markers of `file` up to and with the start of scan. False with a message in `error` when
/// something is missing, damaged or outside of what BaselineJpegDecoder takes.
bool parseJpegHeader(std::span<const std::uint8_t> file, JpegHeader& header, JpegErrorText& error);

}  // namespace scansteps::jpeg
