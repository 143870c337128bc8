#include "framework/large_pages.h"

#ifdef __linux__
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#endif

namespace scansteps {

void preferLargePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t bytes)
{
#ifdef __linux__
    constexpr std::size_t kPage = std::size_t{2} << 20;
    constexpr std::size_t kLeast = 2 * kPage;  // below, the ragged ends are most of it
    if (bytes < kLeast) return;
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::size_t first = (kPage - address % kPage) % kPage;
    const int before = errno;
    madvise(static_cast<char*>(block) + first, (bytes - first) / kPage * kPage, MADV_HUGEPAGE);
    errno = before;
#endif
}

}  // namespace scansteps
