// Access to arrays of a record as lists of tuples: the points, triangles and colours of models.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "scansteps/record.h"

namespace scansteps {

/// Elements of the array `record[name]` as consecutive tuples of `width` (2 or 3) elements. Accepted shapes
/// for N tuples are width x N x 1, N x width x 1 and (width * N) x 1 x 1, which have the same memory layout;
/// an array of kind empty is an empty list. Throws the record's look-up and type errors, and a text that
/// names the entry for any other shape or element kind. The span is valid as long as the record's array.
std::span<const float> floatList(const varitype& record, const char* name, std::uint32_t width);

/// The same for int or unsigned int elements; negative numbers are reinterpreted as unsigned.
std::span<const std::uint32_t> indexList(const varitype& record, const char* name, std::uint32_t width);

/// Int elements of an array with at most one dimension above 1.
std::span<const std::int32_t> intList(const varitype& record, const char* name);

}  // namespace scansteps
