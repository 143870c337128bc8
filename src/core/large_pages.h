// Memory for frames. Large frames span thousands of ordinary pages; the address translation costs kernels
// with little work per sample up to a quarter of their time. Frames that do not begin on a cache line make
// them up to a third slower.
#pragma once

#include <cstddef>

namespace scansteps {

/// Memory for use with free() and realloc(). Begins on a cache line unless it is small or the C runtime does
/// not support that. Null on failure.
void* mallocOnLine(std::size_t bytes);

/// Asks the system to use large pages for the block, before its memory is first accessed. Has no effect on
/// small blocks and on systems without such a call.
void preferLargePages(void* block, std::size_t bytes);

/// Zero-fills a block of private memory. The pages of a large block are returned to the system instead of
/// being written, so that they take memory only when used.
void clearPages(void* block, std::size_t bytes);

}  // namespace scansteps
