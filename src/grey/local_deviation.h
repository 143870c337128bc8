// Standard deviation of the samples around each pixel of a 16-bit frame: the kernel of cdeva.
#pragma once

#include <cstdint>
#include <span>

#include "core/scratch_arena.h"
#include "grey/sample_coding.h"

namespace scansteps::grey {

/// Replaces every sample of a frame of width × height by the standard deviation of the size × size samples
/// around it (oddWindow() of grey_filters.h), times `gain`, truncated, clamped to 0 ... 32767, + 32768. Sums
/// and sums of squares are running integer sums, so they are exact and the time does not depend on the size.
/// Beyond the borders the outermost samples are repeated. Throws when the frame holds fewer samples than
/// width × height.
void localDeviation(std::span<std::uint16_t> frame, int width, int height, SampleCoding coding, int size,
                    float gain, Scratch scratch = {});

namespace scalar {
void localDeviation(std::span<std::uint16_t> frame, int width, int height, SampleCoding coding, int size,
                    float gain);
}  // namespace scalar

}  // namespace scansteps::grey
