// Work memory of a step: what kernels need for the length of a call comes from here, so that frames after the
// first few take none from the system.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <new>
#include <type_traits>
#include <vector>

#include "core/large_pages.h"

namespace scansteps {

/// What kernels take their work memory from; the system's unless the caller says otherwise.
using Scratch = std::pmr::polymorphic_allocator<std::byte>;

/// Work memory for `size` values of T that start undefined, on a cache line.
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

/// Hands out pieces one behind the other and starts anew when all have come back. Where one block did not
/// suffice, the next time it does. Not for two threads at a time.
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
            used_ -= wholeLines(bytes);  // the last comes back first as a rule
        if (--pieces_ > 0) return;
        used_ = 0;
        if (blocks_.size() < 2) return;
        const std::size_t all = total_;
        release();
        try {
            addBlock(all);
        } catch (const std::bad_alloc&) {  // it is only put off
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

    std::vector<Block> blocks_;  // only the last has room
    std::size_t total_ = 0, used_ = 0, pieces_ = 0;
};

}  // namespace scansteps
