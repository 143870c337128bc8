// Single-channel 32-bit float image, which the edge kernels work on. Rows are 64-byte aligned and padded, so
// that kernels may store whole vectors; padding contents are unspecified.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "core/large_pages.h"
#include "scansteps/error.h"

namespace scansteps::edges {

class FloatPlane
{
  public:
    FloatPlane() = default;
    FloatPlane(std::uint32_t width, std::uint32_t height) { resize(width, height); }
    FloatPlane(FloatPlane&& other) noexcept { swap(other); }
    FloatPlane& operator=(FloatPlane&& other) noexcept
    {
        swap(other);
        return *this;
    }

    /// Keeps buffer and contents when the size is unchanged, else allocates a new buffer filled with zeros.
    /// Throws "FloatPlane: size out of range" when the size exceeds the address space, and std::bad_alloc.
    void resize(std::uint32_t width, std::uint32_t height)
    {
        if (width == width_ && height == height_) return;
        const std::size_t stride = strideOf(width, height);
        buffer_ = zeros(stride * height);
        capacity_ = stride * height;
        width_ = width;
        height_ = height;
        stride_ = stride;
    }

    /// The same, but samples are unspecified. Reuses the buffer when it is large enough.
    void reshape(std::uint32_t width, std::uint32_t height)
    {
        const std::size_t stride = strideOf(width, height);
        if (stride * height > capacity_) return resize(width, height);
        width_ = width;
        height_ = height;
        stride_ = stride;
    }

    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    /// Distance between rows in samples.
    std::size_t stride() const { return stride_; }

    float* row(std::size_t y) { return buffer_.get() + y * stride_; }
    const float* row(std::size_t y) const { return buffer_.get() + y * stride_; }
    std::span<float> samples(std::size_t y) { return {row(y), width_}; }
    std::span<const float> samples(std::size_t y) const { return {row(y), width_}; }

    void swap(FloatPlane& other) noexcept
    {
        std::swap(buffer_, other.buffer_);
        std::swap(width_, other.width_);
        std::swap(height_, other.height_);
        std::swap(stride_, other.stride_);
        std::swap(capacity_, other.capacity_);
    }

  private:
    static constexpr std::size_t kLine = 16;  // samples in 64 bytes
    struct Release
    {
        void operator()(float* p) const { ::operator delete[](p, std::align_val_t{64}); }
    };

    static std::size_t strideOf(std::uint32_t width, std::uint32_t height)
    {
        std::size_t stride = (std::size_t{width} + kLine - 1) / kLine * kLine;
        if (stride % 1024 == 0) stride += kLine;  // rows one page apart would map to the same cache sets
        if (height != 0 && stride > std::numeric_limits<std::size_t>::max() / 8 / height)
            fail("FloatPlane: size out of range");
        return stride;
    }

    using Buffer = std::unique_ptr<float[], Release>;

    static Buffer zeros(std::size_t samples)
    {
        if (samples == 0) return nullptr;
        const std::size_t bytes = samples * sizeof(float);
        void* block = ::operator new[](bytes, std::align_val_t{64});
        preferLargePages(block, bytes);
        return Buffer(static_cast<float*>(std::memset(block, 0, bytes)));
    }

    Buffer buffer_;
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::size_t stride_ = 0;
    std::size_t capacity_ = 0;  // size of the buffer in samples
};

}  // namespace scansteps::edges
