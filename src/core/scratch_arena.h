// Scratch memory for kernels, valid during a call. A step keeps an arena, so that after the first few frames
// no memory is allocated from the system.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <new>
#include <type_traits>
#include <vector>

#include "core/large_pages.h"

namespace scansteps {

/// Allocator for the scratch memory of kernels; by default, memory comes from the system.
using Scratch = std::pmr::polymorphic_allocator<std::byte>;

/// Uninitialised scratch memory for `size` values of T, beginning on a cache line.
template <class T>
class ScratchArray
{
  public:
    ScratchArray(std::size_t size, Scratch scratch)
        : scratch_(scratch), size_(size), data_(static_cast<T*>(scratch_.allocate_bytes(bytes(), kLine)))
    {
    }
    ScratchArray(const ScratchArray&) = delete;
    ScratchArray& operator=(const ScratchArray&) = delete;
    ~ScratchArray() { scratch_.deallocate_bytes(data_, bytes(), kLine); }
    T* data() const { return data_; }

  private:
    static constexpr std::size_t kLine = 64;
    static_assert(std::is_trivially_copyable_v<T>);
    std::size_t bytes() const { return size_ * sizeof(T); }

    Scratch scratch_;
    std::size_t size_;
    T* data_;
};

/// Allocates sequentially from a block and starts over when everything has been freed. If further blocks were
/// needed, they are then replaced by one of the total size. Not thread-safe.
class ScratchArena final : public std::pmr::memory_resource
{
  public:
    ScratchArena() = default;
    ScratchArena(const ScratchArena&) = delete;
    ScratchArena& operator=(const ScratchArena&) = delete;
    ~ScratchArena() override { release(); }

  private:
    static constexpr std::size_t kLine = 64;  // alignment of all pieces

    struct Block
    {
        std::byte* first;
        std::size_t size;
    };

    void* do_allocate(std::size_t bytes, std::size_t) override
    {
        bytes = wholeLines(bytes);
        if (blocks_.empty() || bytes > blocks_.back().size - used_) addBlock(std::max(bytes, total_));
        std::byte* piece = blocks_.back().first + used_;
        used_ += bytes;
        ++pieces_;
        return piece;
    }
    void do_deallocate(void* piece, std::size_t bytes, std::size_t) override
    {
        if (static_cast<std::byte*>(piece) + wholeLines(bytes) == blocks_.back().first + used_)
            used_ -= wholeLines(bytes);  // pieces are usually freed in reverse order
        if (--pieces_ > 0) return;
        used_ = 0;
        if (blocks_.size() < 2) return;
        const std::size_t all = total_;
        release();
        try {
            addBlock(all);
        } catch (const std::bad_alloc&) {  // retried the next time
        }
    }
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override
    {
        return this == &other;
    }

    static std::size_t wholeLines(std::size_t bytes)
    {
        return std::max((bytes + kLine - 1) / kLine, std::size_t{1}) * kLine;
    }
    void addBlock(std::size_t size)
    {
        blocks_.reserve(blocks_.size() + 1);
        blocks_.push_back({static_cast<std::byte*>(::operator new (size, std::align_val_t{kLine})), size});
        preferLargePages(blocks_.back().first, size);
        total_ += size;
        used_ = 0;
    }
    void release()
    {
        for (const Block& block : blocks_) ::operator delete (block.first, std::align_val_t{kLine});
        blocks_.clear();
        total_ = used_ = 0;
    }

    std::vector<Block> blocks_;  // only the last one has free space
    std::size_t total_ = 0, used_ = 0, pieces_ = 0;
};

}  // namespace scansteps
