// The colour conversions against their scalar twins: every byte triple, and every width.
#include "pixels/yuyv.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

TEST(Yuyv, documentedValues)
{
    const std::vector<std::uint16_t> yuyv = {0x8010, 0x80EB};  // black, white
    std::vector<std::uint8_t> rgb(6, 77);
    yuyvToRgb(yuyv, rgb, 2, 1);
    EXPECT_EQ(rgb, (std::vector<std::uint8_t>{0, 0, 0, 254, 254, 254}));
    std::vector<std::uint16_t> back(2);
    rgbToYuyv(std::vector<std::uint8_t>{0, 0, 0, 255, 255, 255}, back, 2, 1);
    EXPECT_EQ(back, (std::vector<std::uint16_t>{0x8010, 0x80EA}));
}

// All (Y, U, V): a frame of 2^16 pairs for every V, with two different luma values in each pair.
TEST(Yuyv, toRgbIsExactForAllByteTriples)
{
    std::vector<std::uint16_t> in(2 << 16);
    const std::vector<std::uint8_t> out(3 * in.size());
    for (unsigned v = 0; v < 256; ++v) {
        for (unsigned k = 0; k < 1 << 16; ++k) {
            in[2 * k] = static_cast<std::uint16_t>(k);
            in[2 * k + 1] = static_cast<std::uint16_t>(((k + 128) & 0xFF) | v << 8);
        }
        expectTwins(yuyvToRgb, pixels::scalar::yuyvToRgb, in, out, std::size_t{2}, in.size() / 2);
    }
}

// All (r, g, b), once in an even and once in an odd column.
TEST(Yuyv, fromRgbIsExactForAllByteTriples)
{
    std::vector<std::uint8_t> in(3 * (1 << 17));
    const std::vector<std::uint16_t> out(1 << 17);
    for (unsigned b = 0; b < 256; ++b) {
        for (unsigned k = 0; k < 1 << 17; ++k) {
            in[3 * k] = static_cast<std::uint8_t>(k / 2);
            in[3 * k + 1] = static_cast<std::uint8_t>(k / 2 >> 8);
            in[3 * k + 2] = static_cast<std::uint8_t>(b);
        }
        expectTwins(rgbToYuyv, pixels::scalar::rgbToYuyv, in, out, out.size(), std::size_t{1});
    }
}

// Odd widths, short rows, remainders of every length; buffers have the exact size, so that sanitizers detect
// overruns.
TEST(Yuyv, everyWidth)
{
    std::mt19937 random(7);
    for (std::size_t width = 0; width < 200; ++width) {
        for (const std::size_t height : {0, 1, 2, 3}) {
            std::vector<std::uint16_t> yuyv(width * height);
            for (auto& sample : yuyv) sample = static_cast<std::uint16_t>(random());
            std::vector<std::uint8_t> rgb(3 * width * height);
            expectTwins(yuyvToRgb, pixels::scalar::yuyvToRgb, yuyv, rgb, width, height);
            pixels::scalar::yuyvToRgb(yuyv, rgb, width, height);
            expectTwins(rgbToYuyv, pixels::scalar::rgbToYuyv, rgb, yuyv, width, height);
        }
    }
}

TEST(Yuyv, lastColumnOfAnOddWidth)
{
    // V of the last column is the next row's first high byte; there is none after the last row.
    const std::vector<std::uint16_t> in = {0x8010, 0xA010, 0x8080, 0xF010, 0x2010, 0x8080};
    std::vector<std::uint8_t> out(18), neutral(6);
    yuyvToRgb(in, out, 3, 2);
    const std::vector<std::uint16_t> same = {0x8080, 0xF010};
    yuyvToRgb(same, neutral, 2, 1);
    EXPECT_TRUE(std::equal(out.begin() + 6, out.begin() + 9, neutral.begin()));
    EXPECT_EQ(out[15], 130);  // 1.164 * 112, no colour
    EXPECT_EQ(out[16], 130);
}

TEST(Yuyv, smallBuffersAreRefused)
{
    std::vector<std::uint16_t> yuyv(6);
    std::vector<std::uint8_t> rgb(17);
    EXPECT_THROW(yuyvToRgb(yuyv, rgb, 3, 2), const char*);
    EXPECT_THROW(rgbToYuyv(rgb, yuyv, 3, 2), const char*);
    EXPECT_THROW(yuyvToRgb(yuyv, rgb, std::size_t{1} << 63, 4), const char*);
}

}  // namespace
}  // namespace scansteps
