// Storage of arrays for those who fill it before there is an array.
#pragma once

#include <cstddef>

#include "scansteps/array.h"

namespace scansteps {

enum class Fill
{
    Zeros,
    Nothing,
    Growing,  // nothing, and in ordinary pages: the system moves only those without a copy when a block grows
};

/// Null for 0 bytes. Throws std::bad_alloc.
ArrayStorage allocateStorage(std::size_t bytes, Fill fill);
/// The same bytes in a larger block.
void growStorage(ArrayStorage& storage, std::size_t bytes);

}  // namespace scansteps
