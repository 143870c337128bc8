// Prefetches memory for kernels that read or write it sequentially. The hardware prefetcher stops at the end
// of a page and does not run far enough ahead for the largest frames.
#pragma once

namespace scansteps {

/// Starts loading the cache line 2048 bytes after `at`, which may be any address.
inline void prefetch(const void* at)
{
    __builtin_prefetch(static_cast<const char*>(at) + 2048);
}

/// The same for writing: the cache line 1024 bytes after `at`.
inline void prefetchForWriting(const void* at)
{
    __builtin_prefetch(static_cast<const char*>(at) + 1024, 1);
}

/// Starts loading the cache line at `at` into the second-level cache, for kernels whose working set fills the
/// first-level cache.
inline void prefetchToSecondLevel(const void* at)
{
    __builtin_prefetch(at, 0, 2);
}

}  // namespace scansteps
