// Separable filters of 3, 5 and 7 taps whose two directions run in one walk over the rows. Private to the module.
#pragma once

#include "core/scratch_arena.h"
#include "edges/float_plane.h"

namespace scansteps::edges {

/// How the samples of one direction are folded: pairs about the centre added, or subtracted, times factors;
/// or all added, for the box filter, the second direction of which is scaled.
enum class Fold
{
    Smooth,
    Differ,
    BoxSum,
    BoxMean
};

/// A filter of 2 radius + 1 taps each way, radius 1 to 3. factors[k] belongs to the samples at distance k; a
/// box mean is scaled by factors[0].
struct FusedFilter
{
    int radius = 0;
    Fold x = Fold::Smooth, y = Fold::Smooth;
    float xFactors[4] = {}, yFactors[4] = {};
};

/// Whether there is a path for this pair of folds.
bool isFusable(const FusedFilter& filter);

/// `dst` has the size of `src` and may be the same plane; neither is empty.
void filterFused(const FloatPlane& src, FloatPlane& dst, const FusedFilter& filter, Scratch scratch);

}  // namespace scansteps::edges
