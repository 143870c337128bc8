// Counts the blocks allocated by operator new and freed by operator delete in the whole program. Include it
// in one source file of a program only. Sanitizers keep their own operators, which find mismatched pairs;
// their hooks report allocations.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "sanitized.h"

#ifdef SCANSTEPS_SANITIZED
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
#endif

namespace scansteps::test {

inline std::atomic<long> allocations{0};
/// Freed blocks.
inline std::atomic<long> releases{0};

/// Blocks in use that were allocated after the program's start.
inline long liveBlocks()
{
    return allocations - releases;
}

/// Allocations that `call` makes.
template <class Call>
long allocationsOf(Call call)
{
    const long before = allocations;
    call();
    return allocations - before;
}

#ifdef SCANSTEPS_SANITIZED
inline void countBlock(const volatile void*, std::size_t)
{
    ++allocations;
}
inline void countRelease(const volatile void* block)
{
    if (block != nullptr) ++releases;
}
inline const int hooks = __sanitizer_install_malloc_and_free_hooks(countBlock, countRelease);
}  // namespace scansteps::test
#else
inline void* counted(std::size_t size)
{
    ++allocations;
    if (void* p = std::malloc(size != 0 ? size : 1)) return p;
    throw std::bad_alloc();
}

/// The block's own address stands before the aligned one.
inline void* countedAligned(std::size_t size, std::size_t alignment)
{
    void* block = counted(size + alignment + sizeof(void*));
    const auto first = reinterpret_cast<std::uintptr_t>(block) + sizeof(void*);
    void** aligned = reinterpret_cast<void**>((first + alignment - 1) / alignment * alignment);
    aligned[-1] = block;
    return aligned;
}

inline void release(void* p)
{
    if (p == nullptr) return;
    ++releases;
    std::free(p);
}

inline void releaseAligned(void* p)
{
    if (p != nullptr) release(static_cast<void**>(p)[-1]);
}

}  // namespace scansteps::test

// Out of line, because the compiler would warn of a mismatch between new and free().
// clang-format off
void* operator new(std::size_t size) { return scansteps::test::counted(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { ++scansteps::test::allocations; return std::malloc(size != 0 ? size : 1); }
void* operator new[](std::size_t size) { return scansteps::test::counted(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return scansteps::test::countedAligned(size, std::size_t(alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return scansteps::test::countedAligned(size, std::size_t(alignment)); }
[[gnu::noinline]] void operator delete(void* p) noexcept { scansteps::test::release(p); }
[[gnu::noinline]] void operator delete[](void* p) noexcept { scansteps::test::release(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { scansteps::test::release(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { scansteps::test::release(p); }
[[gnu::noinline]] void operator delete(void* p, std::align_val_t) noexcept { scansteps::test::releaseAligned(p); }
[[gnu::noinline]] void operator delete[](void* p, std::align_val_t) noexcept { scansteps::test::releaseAligned(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t, std::align_val_t) noexcept { scansteps::test::releaseAligned(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { scansteps::test::releaseAligned(p); }
// clang-format on
#endif
