// Orientations and descriptors from gradients: vector code, and what they must not depend on.
#include "corners/gradient_descriptor.h"

#include <cmath>
#include <numbers>

#include "support/test.h"

namespace scansteps {
namespace {

using namespace corners;

constexpr int kSide = 33;

// A pattern of waves, seen from `angle` radians, with a gain and an offset; or noise.
grey::GreyImage pattern(float angle, float gain, float offset)
{
    grey::GreyImage image;
    image.reshape(kSide, kSide);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const float dx = float(x - kSide / 2), dy = float(y - kSide / 2);
            const float u = std::cos(angle) * dx + std::sin(angle) * dy;
            const float v = -std::sin(angle) * dx + std::cos(angle) * dy;
            const float wave = 2 * u + 40 * std::sin(0.3F * u + 1) + 25 * std::sin(0.45F * v - 0.1F * u);
            image.row(y)[x] = std::uint8_t(std::lround(offset + gain * (128 + wave)));
        }
    return image;
}

TEST(GradientDescriptor, vectorEqualsScalar)
{
    std::mt19937 random(4);
    for (int i = 0; i < 40; ++i) {
        grey::GreyImage image = pattern(float(i), 0.5F, 30);
        if (i % 2 != 0)
            for (auto& v : image.samples) v = std::uint8_t(random());
        const float x = 16 + float(i % 5) / 8, y = 16 + float(i % 7) / 9, angle = 0.4F * float(i);
        const Orientations expected = corners::scalar::gradientOrientations(image.view(), x, y);
        const CornerDescriptor bits = corners::scalar::describeGradients(image.view(), x, y, angle);
        forEachTarget([&] {
            const Orientations out = gradientOrientations(image.view(), x, y);
            EXPECT_EQ(out.count, expected.count);
            EXPECT_EQ(out.angle, expected.angle);
            EXPECT_EQ(describeGradients(image.view(), x, y, angle), bits) << i;
        });
    }
}

TEST(GradientDescriptor, followsRotationAndIgnoresGainAndOffset)
{
    const auto described = [](const grey::GreyImage& image, float& angle) {
        const Orientations found = gradientOrientations(image.view(), 16, 16);
        EXPECT_GE(found.count, 1);
        angle = found.angle[0];
        return describeGradients(image.view(), 16, 16, angle);
    };
    float angle = 0, other = 0;
    const CornerDescriptor bits = described(pattern(0, 0.8F, 20), angle);
    EXPECT_EQ(bits.back(), 0U);
    for (const float turn : {0.0F, 0.3F, 1.0F, 2.5F}) {
        EXPECT_LT(hammingDistance(described(pattern(turn, 0.5F, 60), other), bits), 26) << turn;
        EXPECT_LT(std::abs(std::remainder(other - angle - turn, float(2 * std::numbers::pi))), 0.1F) << turn;
    }
    EXPECT_GT(hammingDistance(describeGradients(pattern(0, 0.8F, 20).view(), 16, 16, angle + 2), bits), 60);
    const grey::GreyImage flat = pattern(0, 0, 90);
    EXPECT_EQ(gradientOrientations(flat.view(), 16, 16).count, 0);
    EXPECT_EQ(describeGradients(flat.view(), 16, 16, 0), CornerDescriptor{});
}

}  // namespace
}  // namespace scansteps
