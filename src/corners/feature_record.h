// Features in records: the entries "vert", "vertAttr" and "verti". Shared with the registration steps.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "corners/corners.h"
#include "scansteps/record.h"

namespace scansteps::corners {

/// Adds the three entries, each with one row per feature:
///   "vert"      float 2 × N × 1: x, y in pixels of the frame
///   "vertAttr"  unsigned int 16 × N × 1: the feature record, word by word. x, y, score, angle (radians) and
///               size as the bits of floats, the level, then ten words of descriptor, lower halves first
///   "verti"     int 1 × N × 1: `indices`
/// Throws "[%s] already found" when the record has one of them.
void insertFeatures(varitype& record, std::span<const CornerFeature> features,
                    std::span<const std::int32_t> indices);

/// True when the record has "vertAttr".
bool holdsFeatures(const varitype& record);

/// The features of "vertAttr" at the positions in "vert", which other steps may have changed. Throws when
/// "vertAttr" is not an unsigned int array of 16 words per row, when "vert" does not hold one pair of floats
/// for each, or when a position or size is not finite or out of range.
std::vector<CornerFeature> featuresOf(const varitype& record);

}  // namespace scansteps::corners
