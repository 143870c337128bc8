// Fetches memory ahead of a kernel that walks over it. Processors do so themselves, but not past the end of a
// page and not far enough for the largest frames.
#pragma once

namespace scansteps {

/// Starts loading the 64 bytes that lie 2048 bytes after `at`; any address will do.
inline void fetchAhead(const void* at)
{
    __builtin_prefetch(static_cast<const char*>(at) + 2048);
}

/// The same for memory that will be written: 64 bytes that lie 1024 bytes after `at`.
inline void fetchAheadToWrite(const void* at)
{
    __builtin_prefetch(static_cast<const char*>(at) + 1024, 1);
}

/// Starts loading the 64 bytes at `at`, any address, as far as the second-level cache: for kernels whose own
/// working set fills the first.
inline void fetchToSecondLevel(const void* at)
{
    __builtin_prefetch(at, 0, 2);
}

}  // namespace scansteps
