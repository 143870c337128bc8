// Planes of a decoded picture packed into YUYV16 samples.
#include "jpeg/pack_yuyv16.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace jpeg;

TEST(PackYuyv16, documentedPlaces)
{
    const std::vector<std::uint8_t> luma = {1, 2, 3, 4, 5, 6, 7, 8, 9};  // 3 by 3
    const std::vector<std::uint8_t> even = {0x10, 0x20, 0x30, 0x40};
    const std::vector<std::uint8_t> odd = {0x50, 0x60, 0x70, 0x80};
    const std::vector<std::uint16_t> expected = {0x1001, 0x5002, 0x2003, 0x1004, 0x5005,
                                                 0x2006, 0x3007, 0x7008, 0x4009};
    std::vector<std::uint16_t> out(9);
    jpeg::scalar::packYuyv16(luma, even, odd, out, 3, 3);
    EXPECT_EQ(out, expected);
    EXPECT_THROW(packYuyv16(luma, {even.data(), 3}, odd, out, 3, 3), const char*);
    EXPECT_THROW(packYuyv16(luma, even, odd, {out.data(), 8}, 3, 3), const char*);
}

TEST(PackYuyv16, vectorEqualsScalar)
{
    std::mt19937 random(1);
    for (const std::size_t width : {1U, 2U, 31U, 64U, 65U, 127U, 128U, 200U, 640U})
        for (const std::size_t height : {1U, 2U, 5U}) {
            const std::size_t chroma = (width + 1) / 2 * ((height + 1) / 2);
            std::vector<std::uint8_t> luma(width * height), even(chroma), odd(chroma);
            for (auto* plane : {&luma, &even, &odd})
                for (auto& byte : *plane) byte = std::uint8_t(random());
            std::vector<std::uint16_t> expected(luma.size());
            jpeg::scalar::packYuyv16(luma, even, odd, expected, width, height);
            forEachTarget([&] {
                std::vector<std::uint16_t> out(luma.size());
                packYuyv16(luma, even, odd, out, width, height);
                EXPECT_EQ(out, expected) << width << " by " << height;
            });
        }
}

}  // namespace
}  // namespace scansteps
