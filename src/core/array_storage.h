// Allocates storage that is filled before an array takes it over.
#pragma once

#include <cstddef>

#include "scansteps/array.h"

namespace scansteps {

enum class Fill
{
    Zeros,
    Nothing,
    Growing,  // as Nothing, but in ordinary pages, which the system can move without copying when a block
              // grows
};

/// Null for 0 bytes. Throws std::bad_alloc.
ArrayStorage allocateStorage(std::size_t bytes, Fill fill);
/// Enlarges the block, keeping its bytes. Throws std::bad_alloc.
void growStorage(ArrayStorage& storage, std::size_t bytes);

}  // namespace scansteps
