// The edge detector on 16-bit frames: conversion to floats, the last box filter, detection and output in one
// pass over the rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "edges/canny.h"
#include "edges/edge_bits.h"
#include "grey/sample_coding.h"

namespace scansteps::edges {

/// Converts the samples of a frame of width x height to floats: luma 0 ... 255, or -32768 ... 32767. The
/// plane is resized. Throws when the frame holds fewer samples.
void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding);

/// Converts one row. Both spans have the same length.
void samplesToFloats(std::span<const std::uint16_t> samples, std::span<float> row, grey::SampleCoding coding);

/// Converts floats from 0 to 32767 to offset 16-bit samples, truncated. Both spans have the same length.
void floatsToSamples(std::span<const float> row, std::span<std::uint16_t> samples);

/// Replaces a frame by its edges, with the result of frame16ToPlane, `lowPasses` times lowPass(plane, 3),
/// Canny and floatsToSamples. Throws what they throw, and then leaves the frame unchanged. Allocates nothing
/// when the workspace has been used for the same size, aperture and number of passes before.
void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                  CannyWorkspace& work);

/// The edges that cannyFrame16 would draw. The bitmap belongs to the workspace; the frame is not changed.
EdgeBits& detectFrame16(std::span<const std::uint16_t> frame, std::size_t width, std::size_t height,
                        grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                        CannyWorkspace& work);

/// The same for a plane that holds the samples of a frame after any filter that does not amplify them.
EdgeBits& detectFiltered16(const FloatPlane& plane, double low, double high, int aperture,
                           CannyWorkspace& work);

/// Writes edges as offset 16-bit samples: 33023 on edges, 32768 elsewhere. Throws when the frame is smaller
/// than the bitmap.
void edgesToFrame16(const EdgeBits& edges, std::span<std::uint16_t> frame);

namespace scalar {
void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding);
void edgesToFrame16(const FloatPlane& edges, std::span<std::uint16_t> frame);
void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture);
}  // namespace scalar

}  // namespace scansteps::edges
