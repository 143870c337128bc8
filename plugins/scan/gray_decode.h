// Decoding of a pattern series: which projector column (or row) lit a pixel, and how well that is known.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scansteps::scan {

/// Pictures hold grey levels times this, as 16-bit integers, so that the sum R + 2 G + B of a pixel is exact.
inline constexpr float kSampleScale = 4;

/// Why a pixel has no column.
enum class Discard : std::uint8_t
{
    None,
    Dark,       ///< white and black hardly differ
    Saturated,  ///< a phase picture is at the upper end of its range
    Weak,       ///< the amplitude is too small for the noise
    Ambiguous,  ///< bits contradict each other, the phase or the neighbours
};
inline constexpr std::size_t kDiscardCount = 5;

/// The pictures of one direction, as the kernel reads them; all of the same number of samples.
struct CodedPictures
{
    const std::int16_t* white = nullptr;
    const std::int16_t* black = nullptr;
    std::vector<const std::int16_t*> bits, inverses;  ///< from the most significant bit
    std::vector<const std::int16_t*> shifts;          ///< phase 2 pi k / N
    int period = 16;                                  ///< projector pixels
    int extent = 0;                                   ///< of the projector along the axis, pixels
};

/// Variance of a grey level g: constant + gain * g (read noise and shot noise).
struct NoiseModel
{
    float constant = 4;
    float gain = 0;
};

struct DecodeLimits
{
    float contrast = 10;      ///< least white - black, grey levels
    float saturated = 255;    ///< grey level from which phase pictures count as saturated
    float amplitude = 5;      ///< least amplitude, grey levels
    float weak = 4;           ///< least amplitude as a multiple of the noise
    float modulation = 0.3F;  ///< least amplitude as a share of half the contrast
    NoiseModel noise;
};

/// Where the results of pixels go; spans of the same length as the pictures.
struct DecodedPixels
{
    std::span<float> position;        ///< projector pixels, 0 is the centre of the first; NaN where unknown
    std::span<float> quality;         ///< expected error of `position`; NaN where unknown
    std::span<std::uint8_t> discard;  ///< a Discard
};

/// Decodes Gray code with phase shifts (Sansoni, Carocci, Rodella, "Three-dimensional vision based on a
/// combination of gray-code and phase-shift light projection", Applied Optics 38, 1999). Each bit is the sign
/// of picture minus inverse. Next to the border of two periods the bit that changes there cannot be trusted:
/// when the phase says that a border is near and that bit is undecided, the period is chosen by the phase. N
/// shifts cancel the harmonics of the sinusoid up to the N - 2nd, so that the gamma of a projector need not
/// be known. The expected error is sigma sqrt(2 / N) / amplitude of a period per 2 pi.
void decodeSeries(const CodedPictures& pictures, const DecodeLimits& limits, const DecodedPixels& out);

namespace scalar {
void decodeSeries(const CodedPictures& pictures, const DecodeLimits& limits, const DecodedPixels& out);
}  // namespace scalar

/// Discards pixels none of whose four neighbours is within half a period, as ambiguous. Reads `position` and
/// changes it with `quality` and `discard`.
void discardIsolated(std::size_t width, std::size_t height, int period, const DecodedPixels& out);

/// Number of pixels by Discard.
std::array<std::int64_t, kDiscardCount> countDiscards(std::span<const std::uint8_t> discard);

/// Estimates the noise from what has to hold whatever is in view: a bit's picture and its inverse add up to
/// white plus black. Uses a part of the pixels; robust against pixels where that does not hold.
NoiseModel estimateNoise(const CodedPictures& pictures, std::size_t count);

}  // namespace scansteps::scan
