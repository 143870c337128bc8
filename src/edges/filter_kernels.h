// What the plain and the vector form of the detector share; private to the module.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"

namespace scansteps::edges {

/// A correlation kernel as a list of terms to be summed in order, so that every form of the filter rounds
/// alike.
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
        int at, mirror;  // sample offsets; `mirror` counts for sums and differences, s[at] +- s[mirror]
        float factor;
        Kind kind;
    };

    explicit FoldedKernel(std::span<const float> kernel, Scratch scratch = {});

    std::pmr::vector<Term> terms;
    int before = 0, after = 0;  // how far it reaches to either side
};

/// A term of a kernel with the samples it reads: a row of them from `at` on, and one from `mirror` on.
struct RowTerm
{
    const float* at;
    const float* mirror;
    float factor;
    FoldedKernel::Kind kind;
};

/// Throws when the size is out of range.
float boxWeight(int size);

/// Truncation toward zero, limited to 32 bits, NaN to 0.
std::int32_t saturatedInt(double value);

/// Swapped into order, floored, limited to 32 bits. Throws for a wrong aperture.
struct CannyThresholds
{
    CannyThresholds(double lowIn, double highIn, int aperture);
    std::int32_t low, high;
};

}  // namespace scansteps::edges
