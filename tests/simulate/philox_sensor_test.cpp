// Random numbers and the sensor: known answers, and noise against its statistics.
#include <gtest/gtest.h>
#include <tools/simulate/philox.h>
#include <tools/simulate/sensor.h>

namespace scansteps::simulate {
namespace {

// Known answers that the authors of the generator publish.
TEST(SimulatePhilox, KnownAnswers)
{
    EXPECT_EQ(philox({0, 0, 0, 0}, {0, 0}), (PhiloxCounter{0x6627e8d5, 0xe169c58d, 0xbc57ac4c, 0x9b00dbd8}));
    constexpr std::uint32_t ones = 0xffffffff;
    EXPECT_EQ(philox({ones, ones, ones, ones}, {ones, ones}),
              (PhiloxCounter{0x408f276d, 0x41c83b0e, 0xa20bc7c6, 0x6d5451fd}));
    EXPECT_EQ(philox({0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344}, {0xa4093822, 0x299f31d0}),
              (PhiloxCounter{0xd16cfe09, 0x94fdcceb, 0x5001e420, 0x24126ea1}));
}

struct Statistics
{
    double mean = 0, variance = 0;
};

Statistics exposed(const Sensor& sensor, float light, std::uint64_t seed)
{
    const auto grey = expose(Image(400, 300, 1, light), sensor, seed, 0, 2);
    Statistics result;
    for (const std::uint8_t value : grey) result.mean += value / double(grey.size());
    for (const std::uint8_t value : grey)
        result.variance += (value - result.mean) * (value - result.mean) / double(grey.size() - 1);
    return result;
}

TEST(SimulateSensor, NoiseHasItsVariance)
{
    for (const auto& [read, shot, light] :
         {std::tuple{2.0, 0.0, 100.F}, {0.0, 0.09, 100.F}, {1.5, 0.05, 60.3F}}) {
        const Sensor sensor{.offset = 8, .read = read, .shot = shot};
        const Statistics found = exposed(sensor, light, 7);
        const double variance = read * read + shot * double(light) + 1.0 / 12;  // rounding adds a twelfth
        EXPECT_NEAR(found.mean, 8 + double(light), 4 * std::sqrt(variance / 120000));
        EXPECT_NEAR(found.variance, variance, 4 * variance * std::sqrt(2.0 / 120000));
    }
    EXPECT_NEAR(exposed({.read = 1}, 400, 1).mean, 255, 1e-9);  // saturated
}

TEST(SimulateSensor, NoiseDependsOnSeedAndPictureOnly)
{
    const Sensor sensor{.defocus = 0.7, .read = 2};
    const auto picture = [&](std::uint64_t seed, std::uint32_t number, int threads) {
        return expose(Image(61, 47, 3, 50), sensor, seed, number, threads);
    };
    EXPECT_EQ(picture(1, 0, 1), picture(1, 0, 5));
    EXPECT_NE(picture(1, 0, 1), picture(1, 1, 1));
    EXPECT_NE(picture(1, 0, 1), picture(std::uint64_t{1} << 32U, 0, 1));
}

TEST(SimulateSensor, BlurKeepsLightAndHasItsVariance)
{
    for (const double sigma : {0.3, 0.5, 2.0}) {
        Image image(41, 41);
        image.at(20, 20) = 1;
        blur(image, sigma, 2);
        double sum = 0;
        double variance = 0;
        for (int y = 0; y < 41; ++y) {
            for (int x = 0; x < 41; ++x) {
                sum += image.at(x, y);
                variance += double(image.at(x, y)) * (x - 20) * (x - 20);
            }
        }
        EXPECT_NEAR(sum, 1, 1e-5);
        EXPECT_NEAR(variance, sigma * sigma, 1e-4);
    }
}

}  // namespace
}  // namespace scansteps::simulate
