// Memory for frames. A frame of many megabytes touches thousands of ordinary pages, and looking each of them
// up costs up to a quarter of the time of a kernel that does little with a sample; one that does not begin on
// a cache line costs such a kernel up to a third more.
#pragma once

#include <cstddef>

namespace scansteps {

/// Memory that free() and realloc() take, beginning on a cache line unless it is small or the C runtime
/// cannot allocate so. Null when there is none.
void* mallocOnLine(std::size_t bytes);

/// Asks the system to back `bytes` at `block` with large pages, as far as whole ones fit; to be called before
/// the memory is touched. A wish only: nothing happens for small blocks, and where the system has no such
/// call.
void preferLargePages(void* block, std::size_t bytes);

/// Sets a block of private memory to zeros. Of a large one the pages are given back rather than written, so
/// that they take memory only when they are used.
void clearPages(void* block, std::size_t bytes);

}  // namespace scansteps
