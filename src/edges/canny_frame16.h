// The edge detector on 16-bit frames: conversion to floats, box filtering, detection and the edge frame in
// one walk over the rows, without a float image in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "edges/canny.h"
#include "edges/edge_bits.h"
#include "grey/sample_coding.h"

namespace scansteps::edges {

/// Samples as floats. `frame` holds width x height samples; the plane takes that size. Throws when the frame
/// is smaller.
void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding);

/// One row of that, and back: floats from 0 to 32767 as offset 16-bit samples, truncated. Both spans have the
/// same length.
void samplesToFloats(std::span<const std::uint16_t> samples, std::span<float> row, grey::SampleCoding coding);
void floatsToSamples(std::span<const float> row, std::span<std::uint16_t> samples);

/// Replaces a frame by its edges, as frame16ToPlane, `lowPasses` times lowPass(plane, 3), Canny and
/// floatsToSamples do one after the other. Errors as there; the frame is unchanged after an error. Allocates
/// nothing when the workspace has seen the same sizes before. Up to kFusedLowPasses passes need no float
/// image.
void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                  CannyWorkspace& work);

inline constexpr int kFusedLowPasses = 8;

/// The edges that cannyFrame16 draws, in the workspace's own bitmap, and the frame stays as it is.
EdgeBits& detectFrame16(std::span<const std::uint16_t> frame, std::size_t width, std::size_t height,
                        grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                        CannyWorkspace& work);

/// The same of a plane: samples of a frame, filtered in whatever way that does not amplify them.
EdgeBits& detectFiltered16(const FloatPlane& plane, double low, double high, int aperture,
                           CannyWorkspace& work);

/// Offset 16-bit samples: 33023 on edges, 32768 elsewhere. Throws when the frame is smaller.
void edgesToFrame16(const EdgeBits& edges, std::span<std::uint16_t> frame);

namespace scalar {
void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding);
void edgesToFrame16(const FloatPlane& edges, std::span<std::uint16_t> frame);
void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture);
}  // namespace scalar

}  // namespace scansteps::edges
