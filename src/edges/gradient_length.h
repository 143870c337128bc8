// Lengths of gradients, for one row of samples.
#pragma once

#include <span>

namespace scansteps::edges {

/// min(sqrt(dx² + dy²) × factor, limit) for each sample. The spans have the same length; `out` may be one of
/// the others. NaN gives `limit`.
void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float limit,
                     std::span<float> out);

namespace scalar {
void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float limit,
                     std::span<float> out);
}  // namespace scalar

}  // namespace scansteps::edges
