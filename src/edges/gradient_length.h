// Lengths of gradients, row by row.
#pragma once

#include <span>

namespace scansteps::edges {

/// min(sqrt(dx² + dy²) × factor, most) for each sample. The spans have the same length; `out` may be one of
/// the others. What is no number gives `most`.
void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float most,
                     std::span<float> out);

namespace scalar {
void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float most,
                     std::span<float> out);
}  // namespace scalar

}  // namespace scansteps::edges
