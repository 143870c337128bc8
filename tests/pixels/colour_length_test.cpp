// The length of RGB triples as vectors.
#include "pixels/colour_length.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

TEST(ColourLength, documentedValues)
{
    const std::vector<std::uint8_t> in = {0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 3, 4};
    std::vector<std::uint16_t> out(4);
    colourLength(in, out);
    EXPECT_EQ(out[0], 32768);
    EXPECT_EQ(out[1], 33209);
    EXPECT_EQ(out[2], 33023);
    EXPECT_EQ(out[3], 32773);
}

TEST(ColourLength, exactForAllByteTriples)
{
    std::vector<std::uint8_t> in(3 << 16);
    const std::vector<std::uint16_t> out(1 << 16);
    for (unsigned b = 0; b < 256; ++b) {
        for (unsigned k = 0; k < 1 << 16; ++k) {
            in[3 * k] = static_cast<std::uint8_t>(k);
            in[3 * k + 1] = static_cast<std::uint8_t>(k >> 8);
            in[3 * k + 2] = static_cast<std::uint8_t>(b);
        }
        expectTwins(colourLength, pixels::scalar::colourLength, in, out);
    }
}

// For pure red every length is an integer, for other colours few are.
TEST(ColourLength, everyLengthOfColoursAndOfRed)
{
    std::vector<std::uint8_t> colours(3 * 150), red(3 * 150);
    for (std::size_t k = 0; k < colours.size(); ++k) {
        colours[k] = static_cast<std::uint8_t>(k * 37);
        red[k] = static_cast<std::uint8_t>(k % 3 == 0 ? k * 37 : 0);
    }
    for (const auto& source : {colours, red})
        for (std::size_t count = 0; count < 150; ++count) {
            const std::vector<std::uint8_t> in(source.begin(), source.begin() + 3 * count);
            expectTwins(colourLength, pixels::scalar::colourLength, in, std::vector<std::uint16_t>(count));
        }
}

}  // namespace
}  // namespace scansteps
