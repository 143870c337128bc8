// Reduction of 16-bit frames by whole factors.
#include "pixels/reduce16.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

TEST(Reduce16, offsetMeansAreTruncatedTowardZero)
{
    const std::vector<std::uint16_t> in = {32768, 32769, 32768, 32767, 0, 0, 65535, 65535,
                                           32769, 32769, 32767, 32767, 0, 1, 65535, 65535};
    std::vector<std::uint16_t> out(4);
    reduceOffset16(in, out, 8, 2, 2);
    EXPECT_EQ(out, (std::vector<std::uint16_t>{32768, 32768, 1, 65535}));
}

TEST(Reduce16, yuyvKeepsItsLayout)
{
    // Columns 0..3 of two rows, luma 10 20 30 40 and 11 21 31 41, U V U V.
    const std::vector<std::uint16_t> in = {0x640A, 0xC814, 0x661E, 0xCA28, 0x650B, 0xC915, 0x671F, 0xCB29};
    std::vector<std::uint16_t> out(2);
    reduceYuyv16(in, out, 4, 2, 2);
    EXPECT_EQ(out[0], 0x640F);  // luma 62 / 4, U (100 + 101) / 2
    EXPECT_EQ(out[1], 0xCA23);  // luma 142 / 4, V (202 + 203) / 2
}

TEST(Reduce16, vectorEqualsScalarInEveryShape)
{
    std::mt19937 random(11);
    for (std::size_t width = 0; width < 150; ++width) {
        for (const std::size_t height : {0, 1, 2, 3, 7}) {
            std::vector<std::uint16_t> in(width * height);
            for (auto& sample : in) sample = static_cast<std::uint16_t>(random());
            for (const int factor : {1, 2, 3, 5, 300}) {
                const std::size_t f = static_cast<std::size_t>(factor);
                const std::vector<std::uint16_t> out((width / f) * (height / f));
                expectTwins(reduceOffset16, pixels::scalar::reduceOffset16, in, out, width, height, factor);
                expectTwins(reduceYuyv16, pixels::scalar::reduceYuyv16, in, out, width, height, factor);
            }
        }
    }
}

TEST(Reduce16, colourBeyondAnOddFrameIsNeutral)
{
    const std::vector<std::uint16_t> in(9, 0x1020);  // 3 x 3: the last V does not exist
    std::vector<std::uint16_t> out(1);
    reduceYuyv16(in, out, 3, 3, 3);
    EXPECT_EQ(out[0], 0x1020);
    std::vector<std::uint16_t> same(9);
    reduceYuyv16(in, same, 3, 3, 1);
    EXPECT_EQ(same[8], 0x1020);
}

TEST(Reduce16, badArgumentsAreRefused)
{
    std::vector<std::uint16_t> in(12), out(2);
    for (const int factor : {0, -1}) EXPECT_THROW(reduceOffset16(in, out, 4, 3, factor), const char*);
    EXPECT_THROW(reduceYuyv16(in, out, 4, 4, 2), const char*);
    EXPECT_THROW(reduceYuyv16(in, out, 4, 3, 1), const char*);
}

}  // namespace
}  // namespace scansteps
