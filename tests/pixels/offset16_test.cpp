// Floats to offset 16-bit samples and back.
#include "pixels/offset16.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

TEST(Offset16, documentedValues)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> in = {-40000, -32767, -32767.5F, -0.5F, 0, 1.5F, 32767, 40000, nan, inf, -inf};
    const std::vector<std::uint16_t> expected = {1, 1, 1, 32767, 32768, 32769, 65535, 65535, 65535, 65535, 1};
    std::vector<std::uint16_t> out(in.size());
    pixels::scalar::floatToOffset16(in, out);
    EXPECT_EQ(out, expected);
}

// Every exponent and many mantissas of both signs, which include denormal, huge and special values.
TEST(Offset16, vectorEqualsScalarOnEveryKindOfFloat)
{
    std::vector<float> in;
    for (std::uint64_t bits = 0; bits <= 0xFFFFFFFFU; bits += 9973)
        in.push_back(std::bit_cast<float>(std::uint32_t(bits)));
    expectTwins(floatToOffset16, pixels::scalar::floatToOffset16, in, std::vector<std::uint16_t>(in.size()));
}

TEST(Offset16, allSamplesToFloat)
{
    std::vector<std::uint16_t> in(65536 + 5);
    std::iota(in.begin(), in.end(), std::uint16_t{0});
    forEachTarget([&] {
        std::vector<float> out(in.size());
        offset16ToFloat(in, out);
        for (std::size_t i = 0; i < in.size(); ++i) ASSERT_EQ(out[i], float(int(in[i]) - 32768));
    });
}

}  // namespace
}  // namespace scansteps
