#include "sensor.h"

#include <algorithm>
#include <cmath>

#include "philox.h"

namespace scansteps::simulate {
namespace {

/// exp(-t) I_n(t) for n = 0, 1, … as long as it matters, t = sigma².
std::vector<double> discreteGaussian(double sigma)
{
    std::vector<double> half;
    const double t = sigma * sigma;
    for (int n = 0; n <= 8 * sigma + 8; ++n) half.push_back(std::exp(-t) * std::cyl_bessel_i(n, t));
    while (half.size() > 1 && half.back() < 1e-7) half.pop_back();
    double sum = half[0];
    for (std::size_t n = 1; n < half.size(); ++n) sum += 2 * half[n];
    for (double& weight : half) weight /= sum;
    return half;
}

/// Along one line of `count` values that are `stride` apart.
void blurLine(float* values, int count, std::ptrdiff_t stride, const std::vector<double>& half,
              std::vector<float>& line)
{
    line.resize(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) line[static_cast<std::size_t>(i)] = values[i * stride];
    const auto at = [&](int i) -> double {
        return line[static_cast<std::size_t>(std::clamp(i, 0, count - 1))];
    };
    for (int i = 0; i < count; ++i) {
        double sum = half[0] * at(i);
        for (int n = 1; n < static_cast<int>(half.size()); ++n)
            sum += half[static_cast<std::size_t>(n)] * (at(i - n) + at(i + n));
        values[i * stride] = static_cast<float>(sum);
    }
}

}  // namespace

void blur(Image& image, double sigma, int threads)
{
    if (sigma <= 0) return;
    const std::vector<double> half = discreteGaussian(sigma);
    const std::ptrdiff_t row = std::ptrdiff_t{image.width} * image.channels;
    forRows(image.height, threads, [&](int y) {
        std::vector<float> line;
        for (int c = 0; c < image.channels; ++c)
            blurLine(image.values.data() + y * row + c, image.width, image.channels, half, line);
    });
    forRows(static_cast<int>(row), threads, [&](int x) {
        std::vector<float> line;
        blurLine(image.values.data() + x, image.height, row, half, line);
    });
}

std::vector<std::uint8_t> expose(Image light, const Sensor& sensor, std::uint64_t seed, std::uint32_t picture,
                                 int threads)
{
    blur(light, sensor.defocus, threads);
    std::vector<std::uint8_t> grey(light.values.size());
    const PhiloxKey key{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32U)};
    const int row = light.width * light.channels;
    forRows(light.height, threads, [&](int y) {
        for (int i = 0; i < row; ++i) {
            const std::size_t at =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(row) + static_cast<std::size_t>(i);
            const PhiloxCounter random =
                philox({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(y), picture, 1}, key);
            const double value = light.values[at];
            const double deviation =
                std::sqrt(sensor.read * sensor.read + sensor.shot * std::max(value, 0.0));
            const double noisy = sensor.offset + value + deviation * normalPair(random[0], random[1])[0];
            grey[at] = static_cast<std::uint8_t>(std::clamp(std::floor(noisy + 0.5), 0.0, 255.0));
        }
    });
    return grey;
}

}  // namespace scansteps::simulate
