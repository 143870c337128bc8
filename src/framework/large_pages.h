// Large memory pages for frames. A frame of many megabytes touches thousands of ordinary pages, and looking
// each of them up costs up to a quarter of the time of a kernel that does little with a sample.
#pragma once

#include <cstddef>

namespace scansteps {

/// Asks the system to back `bytes` at `block` with large pages, as far as whole ones fit; to be called before
/// the memory is touched. A wish only: nothing happens for small blocks, and where the system has no such
/// call.
void preferLargePages(void* block, std::size_t bytes);

}  // namespace scansteps
