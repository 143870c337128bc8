// Kernels and parameters that the reference and the vector implementations share. Private to this module.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"

namespace scansteps::edges {

/// A correlation kernel as a list of terms, summed in order, so that all implementations of a filter round
/// identically.
struct FoldedKernel
{
    enum Kind
    {
        Single,
        Sum,
        Difference
    };
    struct Term
    {
        int at, mirror;  // sample offsets; sums and differences are s[at] ± s[mirror]
        float factor;
        Kind kind;
    };

    explicit FoldedKernel(std::span<const float> kernel, Scratch scratch = {});

    std::pmr::vector<Term> terms;
    int before = 0, after = 0;  // extent to either side in samples
};

/// A term of a kernel applied to a row: pointers to the samples at its two offsets.
struct RowTerm
{
    const float* at;
    const float* mirror;
    float factor;
    FoldedKernel::Kind kind;
};

/// Factor of a box filter of size × size. Throws when the size is below 1 or above 65535.
float boxWeight(int size);

/// Truncates towards zero and saturates to 32 bits; NaN gives 0.
std::int32_t saturatedInt(double value);

/// The thresholds as integers: swapped into order, floored, saturated. Throws "aperture_size wrong" unless
/// the aperture is 3, 5 or 7.
struct CannyThresholds
{
    CannyThresholds(double lowIn, double highIn, int aperture);
    std::int32_t low, high;
};

}  // namespace scansteps::edges
