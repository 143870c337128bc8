// Dispatch of the vectorised inverse DCT, and its scalar version.
#include "jpeg/idct.h"

#include <algorithm>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/idct.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
// foreach_target.h must precede the code that it repeats
#include "jpeg/idct-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {

void InverseDct(const std::int16_t* HWY_RESTRICT coefficients, const std::int16_t* HWY_RESTRICT quant,
                std::uint8_t* HWY_RESTRICT samples, std::size_t blocks)
{
    constexpr std::size_t kGroup = idct::GroupBlocks();
    alignas(64) std::int16_t paired[64 * kGroup] = {};
    alignas(64) std::int16_t pairedQuant[64];
    std::uint8_t out[64 * kGroup];
    for (unsigned i = 0; i < 64; ++i) pairedQuant[pairedPosition(i)] = quant[i];
    for (std::size_t first = 0; first < blocks; first += kGroup) {
        const std::size_t count = std::min(kGroup, blocks - first);
        for (std::size_t b = 0; b < count; ++b)
            for (unsigned i = 0; i < 64; ++i) {
                const unsigned p = pairedPosition(i);
                paired[(p / 8 * kGroup + b) * 8 + p % 8] = coefficients[(first + b) * 64 + i];
            }
        idct::InverseDctGroup(paired, pairedQuant, out, 8 * kGroup);
        for (std::size_t b = 0; b < count; ++b)
            for (std::size_t row = 0; row < 8; ++row)
                std::copy_n(out + (row * kGroup + b) * 8, 8, samples + (first + b) * 64 + row * 8);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::jpeg {

HWY_EXPORT(InverseDct);

void inverseDct(std::span<const std::int16_t> coefficients, std::span<const std::int16_t, 64> quant,
                std::span<std::uint8_t> samples)
{
    HWY_DYNAMIC_DISPATCH(InverseDct)
    (coefficients.data(), quant.data(), samples.data(), std::min(coefficients.size(), samples.size()) / 64);
}

namespace scalar {

namespace {

/// The eight-point transform of eight values at distance `step`, in place, rounded and shifted.
void eightPoint(int* v, std::size_t step, int round, int shift)
{
    const int in0 = v[0], in1 = v[step], in2 = v[2 * step], in3 = v[3 * step];
    const int in4 = v[4 * step], in5 = v[5 * step], in6 = v[6 * step], in7 = v[7 * step];

    const int z = (in2 + in6) * 4433;  // 0.541196100 as a 13-bit fraction; the other constants likewise
    const int even2 = z - in6 * 15137;
    const int even3 = z + in2 * 6270;
    const int sum = (in0 + in4) * 8192 + round;
    const int difference = (in0 - in4) * 8192 + round;
    const int e[4] = {sum + even3, difference + even2, difference - even2, sum - even3};

    // Odd part: each output as a single sum; factors are sums of those of the reference algorithm.
    const int o[4] = {in1 * 11363 + in3 * 9633 + in5 * 6437 + in7 * 2260,
                      in1 * 9633 - in3 * 2259 - in5 * 11362 - in7 * 6436,
                      in1 * 6437 - in3 * 11362 + in5 * 2261 + in7 * 9633,
                      in1 * 2260 - in3 * 6436 + in5 * 9633 - in7 * 11363};
    for (std::size_t i = 0; i < 4; ++i) {
        v[i * step] = std::clamp((e[i] + o[i]) >> shift, -32768, 32767);
        v[(7 - i) * step] = std::clamp((e[i] - o[i]) >> shift, -32768, 32767);
    }
}

}  // namespace

void inverseDct(std::span<const std::int16_t> coefficients, std::span<const std::int16_t, 64> quant,
                std::span<std::uint8_t> samples)
{
    const std::size_t blocks = std::min(coefficients.size(), samples.size()) / 64;
    for (std::size_t block = 0; block < blocks; ++block) {
        int v[64];
        for (std::size_t i = 0; i < 64; ++i) v[i] = std::int16_t(coefficients[block * 64 + i] * quant[i]);
        for (std::size_t column = 0; column < 8; ++column) eightPoint(v + column, 8, 1 << 10, 11);
        for (std::size_t row = 0; row < 8; ++row) eightPoint(v + row * 8, 1, (1 << 17) + (128 << 18), 18);
        for (std::size_t i = 0; i < 64; ++i) samples[block * 64 + i] = std::uint8_t(std::clamp(v[i], 0, 255));
    }
}

}  // namespace scalar
}  // namespace scansteps::jpeg
#endif
