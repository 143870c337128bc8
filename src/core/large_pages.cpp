// Memory advice for large blocks: transparent huge pages on Linux, nothing elsewhere.
#include "core/large_pages.h"

#include <cstdlib>
#include <cstring>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#endif

namespace scansteps {

#ifdef __linux__

namespace {

constexpr std::size_t kPage = std::size_t{2} << 20;
constexpr std::size_t kMinSize = 2 * kPage;  // too little of a smaller block consists of whole pages

// The whole pages in a block.
struct Pages
{
    Pages(void* block, std::size_t bytes, std::size_t page)
    {
        const std::size_t before = (page - reinterpret_cast<std::uintptr_t>(block) % page) % page;
        first = static_cast<char*>(block) + before;
        size = (bytes - before) / page * page;
    }
    bool advise(int advice) const
    {
        const int before = errno;
        const bool taken = madvise(first, size, advice) == 0;
        errno = before;
        return taken;
    }
    char* first;
    std::size_t size;
};

}  // namespace

void* mallocOnLine(std::size_t bytes)
{
    constexpr std::size_t kLine = 64;
    if (bytes < 64 * kLine) return std::malloc(bytes);  // several times as fast
    return std::aligned_alloc(kLine, (bytes + kLine - 1) / kLine * kLine);
}

void preferLargePages(void* block, std::size_t bytes)
{
    if (bytes >= kMinSize) Pages(block, bytes, kPage).advise(MADV_HUGEPAGE);
}

void clearPages(void* block, std::size_t bytes)
{
    if (bytes >= kMinSize) {
        const Pages pages(block, bytes, std::size_t(sysconf(_SC_PAGESIZE)));
        if (pages.advise(MADV_DONTNEED)) {
            char* const begin = static_cast<char*>(block);
            std::memset(begin, 0, std::size_t(pages.first - begin));
            std::memset(pages.first + pages.size, 0, std::size_t(begin + bytes - pages.first) - pages.size);
            return;
        }
    }
    std::memset(block, 0, bytes);
}

#else

void* mallocOnLine(std::size_t bytes)
{
    return std::malloc(bytes);
}

void preferLargePages(void*, std::size_t) {}

void clearPages(void* block, std::size_t bytes)
{
    std::memset(block, 0, bytes);
}

#endif

}  // namespace scansteps
