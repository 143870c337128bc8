#include "features/local_deviation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "features/grey_filters.h"
#include "scansteps/error.h"

namespace scansteps {

void localDeviation(std::span<std::uint16_t> frame, int width, int height, Frame16 meaning, int size,
                    float gain)
{
    if (width <= 0 || height <= 0) return;
    const auto w = std::size_t(width);
    if (frame.size() < w * std::size_t(height)) fail("frame smaller than its size says");
    const int window = oddWindow(size);
    const int half = window / 2;
    // The rows that are still needed are kept as they were, as the frame is written over.
    std::vector<std::int32_t> kept(std::size_t(window + 1) * w);
    const auto row = [&](int y) {
        return kept.data() + std::size_t(std::clamp(y, 0, height - 1) % (window + 1)) * w;
    };
    const auto keep = [&](int y) {
        if (y >= height) return;
        const std::uint16_t* from = frame.data() + std::size_t(y) * w;
        std::int32_t* to = row(y);
        for (std::size_t x = 0; x < w; ++x)
            to[x] = meaning == Frame16::Video ? from[x] & 255 : from[x] - 32768;
    };
    std::vector<std::int64_t> sums(w + std::size_t(window));
    std::vector<std::int64_t> squares(sums.size());
    std::int64_t* sum = sums.data() + half;
    std::int64_t* square = squares.data() + half;
    const auto add = [&](const std::int32_t* values, std::int64_t sign) {
        for (std::size_t x = 0; x < w; ++x) {
            sum[x] += sign * values[x];
            square[x] += sign * (std::int64_t{values[x]} * values[x]);
        }
    };
    for (int y = 0; y < half; ++y) keep(y);
    for (int y = -half; y < half; ++y) add(row(y), 1);
    const auto n = std::int64_t{window} * window;
    const double factor = double(gain) / double(n);
    for (int y = 0; y < height; ++y) {
        keep(y + half);
        add(row(y + half), 1);
        for (std::int64_t* s : {sum, square}) {
            std::fill_n(s - half, half, s[0]);
            std::fill_n(s + width, half, s[width - 1]);
        }
        std::int64_t s = 0;
        std::int64_t q = 0;
        for (int x = -half; x < half; ++x) s += sum[x], q += square[x];
        std::uint16_t* to = frame.data() + std::size_t(y) * w;
        for (int x = 0; x < width; ++x) {
            s += sum[x + half];
            q += square[x + half];
            const double deviation = std::sqrt(double(n * q - s * s)) * factor;
            to[x] = std::uint16_t(32768 + (deviation < 32767 ? int(std::max(deviation, 0.0)) : 32767));
            s -= sum[x - half];
            q -= square[x - half];
        }
        add(row(y - half), -1);
    }
}

}  // namespace scansteps
