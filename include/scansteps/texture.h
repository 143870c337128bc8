// Frame buffers: data formats, the buffer object that owns one handle, and the set of buffers in which a step
// owns its input or its output.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "scansteps/array.h"

namespace scansteps {

/// Format codes; only 1 to 10 have buffers. Code 13 does not exist.
namespace format {
inline constexpr std::uint32_t kNone = 0, kF1x16 = 1, kF1x32 = 2, kF1x32n = 3, kF4x16 = 4, kF4x16n = 5,
                               kF4x32 = 6, kF4x32n = 7, kU1x16 = 8, kU1x16n = 9, kU1x8 = 10, kU4x8 = 11,
                               kF2x16 = 12, kU2x16 = 14, kF2x32 = 15;
}

/// Code of the first format name, in the order of the format table, that `text` contains; 0 when none.
std::uint32_t formatCode(std::string_view text);
/// Place of a data type string: 1 when it contains "CPU", else 2 for "GPU", else 0.
std::uint32_t placeCode(std::string_view text);

/// Shape of a frame's array.
struct FrameShape
{
    Kind kind = Kind::Empty;
    std::uint32_t rowLength = 0;  ///< elements a row: channels x width
    std::uint32_t rows = 0;
    std::uint32_t planes = 1;

    bool fits(const Array& array) const { return array.hasShape(kind, rowLength, rows, planes); }
    friend bool operator==(const FrameShape&, const FrameShape&) = default;
};

/// Array shape of a width x height buffer of that format; kind Empty for a code without a buffer class.
FrameShape frameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height);
/// Shape of a frame of that format on its way through a chain: as above, but 8-bit frames are RGB, three
/// bytes a pixel.
FrameShape chainFrameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height);
FrameShape shapeOf(const Array& array);

/// Largest frame: 65,535 pixels on a side and 2^28 in all. Throws a text naming the size when `width` or
/// `height` is negative or beyond that.
void checkFrameSize(std::int64_t width, std::int64_t height);

/// A buffer: owns one handle, whose payload is the typed array of its pixels.
class CTexture
{
  public:
    CTexture(const CTexture&) = delete;
    CTexture& operator=(const CTexture&) = delete;
    /// Frees the array under the handle, then releases the handle.
    virtual ~CTexture();

    std::uint32_t handle;
    std::uint32_t format;
    std::uint32_t width;   ///< pixels a row
    std::uint32_t height;  ///< rows

  protected:
    CTexture(std::uint32_t formatCode, std::uint32_t w, std::uint32_t h);
};

// One class a format, so that the buffer's type can be told at run time.
template <std::uint32_t code>
class TextureOf : public CTexture
{
  public:
    TextureOf(std::uint32_t w, std::uint32_t h) : CTexture(code, w, h) {}
};
using CTexture1x16 = TextureOf<format::kF1x16>;
using CTexture1x32 = TextureOf<format::kF1x32>;
using CTexture1x32n = TextureOf<format::kF1x32n>;
using CTexture4x16 = TextureOf<format::kF4x16>;
using CTexture4x16n = TextureOf<format::kF4x16n>;
using CTexture4x32 = TextureOf<format::kF4x32>;
using CTexture4x32n = TextureOf<format::kF4x32n>;
using CTexture_u1x16 = TextureOf<format::kU1x16>;
using CTexture_u1x16n = TextureOf<format::kU1x16n>;
using CTexture_u1x8 = TextureOf<format::kU1x8>;

/// Creates a zeroed buffer under a new handle; null for a format without a buffer class. Buffers of 8-bit RGB
/// frames are three times as wide as the frames, so up to three times the limits of checkFrameSize() are
/// accepted here.
std::unique_ptr<CTexture> createTexture(std::uint32_t format, std::uint32_t width, std::uint32_t height);

/// The typed array under a handle. Throws the handle table's errors, and a text when the payload is null.
Array& pixelsOf(int handle);

/// The buffers of one side of a step. Swapping handles may put an array of another shape under a buffer's
/// handle; writable() gives it the right shape again.
class TextureSet
{
  public:
    /// Replaces the set by `count` buffers of that size and format. A format without a buffer class makes an
    /// empty set. Throws as createTexture() does.
    void create(std::int64_t width, std::int64_t height, std::uint32_t count, std::uint32_t format);
    /// One buffer whose array has any shape, such as that of a recorded frame.
    void create(std::int64_t width, std::int64_t height, std::uint32_t format, const FrameShape& shape);
    void reset() { *this = TextureSet(); }

    std::uint32_t format() const { return format_; }
    std::uint32_t count() const { return static_cast<std::uint32_t>(textures_.size()); }
    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    const FrameShape& shape() const { return shape_; }

    /// Handle number of a buffer; 0, the number that is never valid, when there is no such buffer.
    int handle(std::size_t index = 0) const;
    /// What now lies under the buffer's handle, whatever its shape.
    Array& pixels(std::size_t index = 0) const { return pixelsOf(handle(index)); }
    /// The same, brought into the set's shape first.
    Array& writable(std::size_t index = 0) const;

  private:
    std::vector<std::unique_ptr<CTexture>> textures_;
    std::uint32_t format_ = 0, width_ = 0, height_ = 0;
    FrameShape shape_;
};

}  // namespace scansteps
