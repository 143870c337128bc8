// Arrays of records read as lists of tuples: the points, triangles and colours of models.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "scansteps/record.h"

namespace scansteps {

/// Elements of the array `record[name]`, tuple after tuple, `width` (2 or 3) elements each. Accepted shapes
/// for N tuples are width x N x 1, N x width x 1 and (width * N) x 1 x 1, all of which lie in memory alike;
/// an array of kind empty is an empty list. Throws the record's look-up and type errors, and a text that
/// names the entry when shape or element kind is another one. The span lives as long as the record's array.
std::span<const float> floatTuples(const varitype& record, const char* name, std::uint32_t width);

/// The same for int or unsigned int elements; negative numbers appear as numbers above 2147483647.
std::span<const std::uint32_t> indexTuples(const varitype& record, const char* name, std::uint32_t width);

/// Int elements of an array with one dimension above 1 at most.
std::span<const std::int32_t> intList(const varitype& record, const char* name);

}  // namespace scansteps
