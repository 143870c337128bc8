// Decoding of pattern series, vectorised and scalar. Products and sums are not fused, so that all instruction
// sets agree to the last bit.
#include "gray_decode.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "plugins/scan/gray_decode.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//

#ifndef SCANSTEPS_SCAN_GRAY_DECODE_ONCE
#define SCANSTEPS_SCAN_GRAY_DECODE_ONCE
namespace scansteps::scan {

// atan(x) / x in powers of x^2 for |x| <= 1, error below 2e-8: Abramowitz and Stegun, Handbook of
// Mathematical Functions, 4.4.49.
constexpr std::array kAtan = {0.0028662257F,  -0.0161657367F, 0.0429096138F,
                              -0.0752896400F, 0.1065626393F,  -0.1420889944F,
                              0.1999355085F,  -0.3333314528F, 1.0F};
constexpr float kTurnsPerRadian = 0.15915494309F;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// What is the same for all pixels.
struct DecodeFactors
{
    std::array<float, 64> sine{}, cosine{};
    float perShift, period, last, minAmplitude2, modulation, contrast, saturated, constant, gain, weak2,
        error;

    DecodeFactors(const CodedPictures& pictures, const DecodeLimits& limits)
    {
        const auto n = pictures.shifts.size();
        for (std::size_t k = 0; k < n; ++k) {
            const double angle = 2 * std::numbers::pi * double(k) / double(n);
            sine[k] = static_cast<float>(std::sin(angle));
            cosine[k] = static_cast<float>(std::cos(angle));
        }
        perShift = 1.0F / (kSampleScale * static_cast<float>(n));
        period = static_cast<float>(pictures.period);
        last = static_cast<float>(pictures.extent);
        minAmplitude2 = limits.amplitude * limits.amplitude;
        modulation = limits.modulation * 0.5F;
        contrast = limits.contrast;
        saturated = limits.saturated * kSampleScale;
        constant = limits.noise.constant;
        gain = limits.noise.gain;
        weak2 = limits.weak * limits.weak;
        error = period * kTurnsPerRadian * static_cast<float>(std::sqrt(2.0 / double(n)));
    }
};

}  // namespace scansteps::scan
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::scan {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// atan2(y, x) in turns, 0 to 1; 0 where both are 0.
template <class D, class V>
HWY_INLINE V Turns(D d, V y, V x)
{
    const V ax = hn::Abs(x), ay = hn::Abs(y);
    const V high = hn::Max(ax, ay), low = hn::Min(ax, ay);
    const V ratio = hn::Div(low, hn::Max(high, hn::Set(d, 1e-30F)));
    const V square = hn::Mul(ratio, ratio);
    V sum = hn::Set(d, kAtan[0]);
    for (std::size_t i = 1; i < kAtan.size(); ++i) sum = hn::Add(hn::Mul(sum, square), hn::Set(d, kAtan[i]));
    V turns = hn::Mul(hn::Mul(sum, ratio), hn::Set(d, kTurnsPerRadian));
    turns = hn::IfThenElse(hn::Gt(ay, ax), hn::Sub(hn::Set(d, 0.25F), turns), turns);
    turns = hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Sub(hn::Set(d, 0.5F), turns), turns);
    return hn::IfThenElse(hn::Lt(y, hn::Zero(d)), hn::Sub(hn::Set(d, 1.0F), turns), turns);
}

void DecodeSeries(const CodedPictures& pictures, const DecodeLimits& limits, const DecodedPixels& out)
{
    const hn::ScalableTag<float> d;
    const hn::RebindToSigned<decltype(d)> di;
    const hn::Rebind<std::int16_t, decltype(d)> d16;
    const hn::Rebind<std::uint8_t, decltype(d)> d8;
    using V = hn::Vec<decltype(d)>;
    const DecodeFactors f(pictures, limits);
    const std::size_t count = out.position.size(), lanes = hn::Lanes(d);
    const V zero = hn::Zero(d), one = hn::Set(d, 1.0F);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto level = [&](const std::int16_t* picture) HWY_ATTR {
            return hn::ConvertTo(d, hn::PromoteTo(di, hn::LoadU(d16, picture + i)));
        };
        const V contrast =
            hn::Mul(hn::Sub(level(pictures.white), level(pictures.black)), hn::Set(d, 1 / kSampleScale));
        V sine = zero, cosine = zero, total = zero, highest = zero;
        for (std::size_t k = 0; k < pictures.shifts.size(); ++k) {
            const V v = level(pictures.shifts[k]);
            sine = hn::Add(sine, hn::Mul(v, hn::Set(d, f.sine[k])));
            cosine = hn::Add(cosine, hn::Mul(v, hn::Set(d, f.cosine[k])));
            total = hn::Add(total, v);
            highest = hn::Max(highest, v);
        }
        const V perShift = hn::Set(d, f.perShift), twice = hn::Set(d, 2 * f.perShift);
        const V s = hn::Mul(sine, twice), c = hn::Mul(cosine, twice);
        const V amplitude2 = hn::Add(hn::Mul(s, s), hn::Mul(c, c));
        const V amplitude = hn::Sqrt(amplitude2);
        const V variance =
            hn::Add(hn::Set(d, f.constant), hn::Mul(hn::Set(d, f.gain), hn::Mul(total, perShift)));

        V number = zero, binary = zero;
        const V large = hn::Set(d, 1e9F);
        V below = large, above = large;   // |difference| of the bits that change at the borders
        V least = large, second = large;  // the two smallest
        for (std::size_t b = 0; b < pictures.bits.size(); ++b) {
            const V difference = hn::Mul(hn::Sub(level(pictures.bits[b]), level(pictures.inverses[b])),
                                         hn::Set(d, 1 / kSampleScale));
            const V bit = hn::IfThenElseZero(hn::Gt(difference, zero), one);
            binary = hn::Abs(hn::Sub(binary, bit));
            number = hn::Add(hn::Add(number, number), binary);
            const V strength = hn::Abs(difference);
            const auto isSet = hn::Gt(binary, zero);
            below = hn::IfThenElse(isSet, strength, below);
            above = hn::IfThenElse(isSet, above, strength);
            second = hn::Min(second, hn::Max(least, strength));
            least = hn::Min(least, strength);
        }

        const V turns = Turns(d, s, c);
        const V half = hn::Mul(contrast, hn::Set(d, 0.5F)), quarter = hn::Mul(contrast, hn::Set(d, 0.25F));
        const auto isLow = hn::Lt(turns, hn::Set(d, 0.25F)), isHigh = hn::Gt(turns, hn::Set(d, 0.75F));
        number = hn::Add(number, hn::IfThenElseZero(hn::And(isLow, hn::Lt(above, half)), one));
        number = hn::Sub(number, hn::IfThenElseZero(hn::And(isHigh, hn::Lt(below, half)), one));
        const V position = hn::Sub(hn::Mul(hn::Add(number, turns), hn::Set(d, f.period)), hn::Set(d, 0.5F));

        const auto isInside = hn::Not(hn::Or(isLow, isHigh));
        const auto contradicts = hn::Or(hn::Lt(second, quarter), hn::And(isInside, hn::Lt(least, quarter)));
        const auto isOutside =
            hn::Or(hn::Lt(position, hn::Set(d, -1.5F)), hn::Gt(position, hn::Set(d, f.last + 0.5F)));
        const auto isFlat = hn::Lt(amplitude, hn::Mul(contrast, hn::Set(d, f.modulation)));
        const auto isWeak = hn::Or(hn::Lt(amplitude2, hn::Mul(variance, hn::Set(d, f.weak2))),
                                   hn::Lt(amplitude2, hn::Set(d, f.minAmplitude2)));
        const auto reason = [&](Discard code) HWY_ATTR { return hn::Set(di, static_cast<int>(code)); };
        auto why = hn::Zero(di);
        why = hn::IfThenElse(hn::RebindMask(di, hn::Or(contradicts, hn::Or(isOutside, isFlat))),
                             reason(Discard::Ambiguous), why);
        why = hn::IfThenElse(hn::RebindMask(di, isWeak), reason(Discard::Weak), why);
        why = hn::IfThenElse(hn::RebindMask(di, hn::Ge(highest, hn::Set(d, f.saturated))),
                             reason(Discard::Saturated), why);
        why = hn::IfThenElse(hn::RebindMask(di, hn::Lt(contrast, hn::Set(d, f.contrast))),
                             reason(Discard::Dark), why);
        const auto isKept = hn::RebindMask(d, hn::Eq(why, hn::Zero(di)));
        const V unknown = hn::Set(d, kNaN);
        hn::StoreU(hn::IfThenElse(isKept, position, unknown), d, out.position.data() + i);
        const V error = hn::Div(hn::Mul(hn::Sqrt(hn::Max(variance, zero)), hn::Set(d, f.error)),
                                hn::Max(amplitude, hn::Set(d, 1e-30F)));
        hn::StoreU(hn::IfThenElse(isKept, error, unknown), d, out.quality.data() + i);
        hn::StoreU(hn::DemoteTo(d8, why), d8, out.discard.data() + i);
    }
    if (i == count) return;
    CodedPictures rest = pictures;
    rest.white += i;
    rest.black += i;
    for (auto* list : {&rest.bits, &rest.inverses, &rest.shifts})
        for (const std::int16_t*& picture : *list) picture += i;
    scalar::decodeSeries(rest, limits,
                         {out.position.subspan(i), out.quality.subspan(i), out.discard.subspan(i)});
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::scan
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::scan {

HWY_EXPORT(DecodeSeries);

void decodeSeries(const CodedPictures& pictures, const DecodeLimits& limits, const DecodedPixels& out)
{
    HWY_DYNAMIC_DISPATCH(DecodeSeries)(pictures, limits, out);
}

namespace scalar {
namespace {

float turnsOf(float y, float x)
{
    const float ax = std::abs(x), ay = std::abs(y);
    const float ratio = std::min(ax, ay) / std::max(std::max(ax, ay), 1e-30F);
    const float square = ratio * ratio;
    float sum = kAtan[0];
    for (std::size_t i = 1; i < kAtan.size(); ++i) sum = sum * square + kAtan[i];
    float turns = sum * ratio * kTurnsPerRadian;
    if (ay > ax) turns = 0.25F - turns;
    if (x < 0) turns = 0.5F - turns;
    return y < 0 ? 1.0F - turns : turns;
}

struct Phase
{
    float turns, amplitude, amplitude2, mean, highest;
};

Phase phaseAt(const CodedPictures& pictures, const DecodeFactors& f, std::size_t i)
{
    float sine = 0, cosine = 0, total = 0, highest = 0;
    for (std::size_t k = 0; k < pictures.shifts.size(); ++k) {
        const float v = pictures.shifts[k][i];
        sine += v * f.sine[k];
        cosine += v * f.cosine[k];
        total += v;
        highest = std::max(highest, v);
    }
    const float s = sine * (2 * f.perShift), c = cosine * (2 * f.perShift);
    const float amplitude2 = s * s + c * c;
    return {turnsOf(s, c), std::sqrt(amplitude2), amplitude2, total * f.perShift, highest};
}

struct Code
{
    int number = 0;
    float below = 1e9F, above = 1e9F, least = 1e9F, second = 1e9F;
};

Code codeAt(const CodedPictures& pictures, std::size_t i)
{
    Code code;
    int binary = 0;
    for (std::size_t b = 0; b < pictures.bits.size(); ++b) {
        const float difference = float(pictures.bits[b][i] - pictures.inverses[b][i]) / kSampleScale;
        binary ^= difference > 0 ? 1 : 0;
        code.number = 2 * code.number + binary;
        const float strength = std::abs(difference);
        (binary != 0 ? code.below : code.above) = strength;
        code.second = std::min(code.second, std::max(code.least, strength));
        code.least = std::min(code.least, strength);
    }
    return code;
}

}  // namespace

void decodeSeries(const CodedPictures& pictures, const DecodeLimits& limits, const DecodedPixels& out)
{
    const DecodeFactors f(pictures, limits);
    for (std::size_t i = 0; i < out.position.size(); ++i) {
        const float contrast = float(pictures.white[i] - pictures.black[i]) / kSampleScale;
        const Phase phase = phaseAt(pictures, f, i);
        Code code = codeAt(pictures, i);
        const float variance = f.constant + f.gain * phase.mean;
        const bool isLow = phase.turns<0.25F, isHigh = phase.turns> 0.75F;
        if (isLow && code.above < contrast * 0.5F) ++code.number;
        if (isHigh && code.below < contrast * 0.5F) --code.number;
        const float position = (float(code.number) + phase.turns) * f.period - 0.5F;
        Discard why = Discard::None;
        if (contrast < f.contrast)
            why = Discard::Dark;
        else if (phase.highest >= f.saturated)
            why = Discard::Saturated;
        else if (phase.amplitude2 < variance * f.weak2 || phase.amplitude2 < f.minAmplitude2)
            why = Discard::Weak;
        else if (code.second < contrast * 0.25F || (!isLow && !isHigh && code.least < contrast * 0.25F) ||
                 position < -1.5F || position > f.last + 0.5F || phase.amplitude < contrast * f.modulation)
            why = Discard::Ambiguous;
        const bool isKept = why == Discard::None;
        out.position[i] = isKept ? position : kNaN;
        out.quality[i] =
            isKept ? std::sqrt(std::max(variance, 0.0F)) * f.error / std::max(phase.amplitude, 1e-30F) : kNaN;
        out.discard[i] = static_cast<std::uint8_t>(why);
    }
}

}  // namespace scalar

void discardIsolated(std::size_t width, std::size_t height, int period, const DecodedPixels& out)
{
    const float limit = static_cast<float>(period) / 2;
    const auto isNear = [limit](float a, float b) { return std::abs(a - b) <= limit; };  // not for NaN
    std::vector<std::size_t> isolated;
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t i = y * width + x;
            const float at = out.position[i];
            if (std::isnan(at) || (x > 0 && isNear(at, out.position[i - 1])) ||
                (x + 1 < width && isNear(at, out.position[i + 1])) ||
                (y > 0 && isNear(at, out.position[i - width])) ||
                (y + 1 < height && isNear(at, out.position[i + width])))
                continue;
            isolated.push_back(i);
        }
    for (const std::size_t i : isolated) {
        out.position[i] = out.quality[i] = kNaN;
        out.discard[i] = static_cast<std::uint8_t>(Discard::Ambiguous);
    }
}

std::array<std::int64_t, kDiscardCount> countDiscards(std::span<const std::uint8_t> discard)
{
    std::array<std::int64_t, kDiscardCount> counts{};
    for (const std::uint8_t why : discard) ++counts[std::min<std::size_t>(why, kDiscardCount - 1)];
    return counts;
}

}  // namespace scansteps::scan
#endif
