// Frame buffers: data formats, the buffer object that owns one handle, and the set of buffers that holds a
// step's input or output.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "scansteps/array.h"

namespace scansteps {

/// Format codes. Only 1 to 10 have a buffer class; 13 is not assigned.
namespace format {
inline constexpr std::uint32_t kNone = 0, kF1x16 = 1, kF1x32 = 2, kF1x32n = 3, kF4x16 = 4, kF4x16n = 5,
                               kF4x32 = 6, kF4x32n = 7, kU1x16 = 8, kU1x16n = 9, kU1x8 = 10, kU4x8 = 11,
                               kF2x16 = 12, kU2x16 = 14, kF2x32 = 15;
}

/// Code of the first name in the format table that `text` contains; 0 if there is none.
std::uint32_t formatCode(std::string_view text);
/// Location named by a data type string: 1 if it contains "CPU", otherwise 2 if it contains "GPU", otherwise
/// 0.
std::uint32_t placeCode(std::string_view text);

/// Shape of a frame's array.
struct FrameShape
{
    Kind kind = Kind::Empty;
    std::uint32_t rowLength = 0;  ///< elements per row: channels x width
    std::uint32_t rows = 0;
    std::uint32_t planes = 1;

    bool fits(const Array& array) const { return array.hasShape(kind, rowLength, rows, planes); }
    friend bool operator==(const FrameShape&, const FrameShape&) = default;
};

/// Array shape of a width x height buffer of the format; kind Empty for a code without a buffer class.
FrameShape frameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height);
/// Shape of frames of the format in a chain: as above, except that 8-bit frames are RGB with three bytes per
/// pixel.
FrameShape chainFrameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height);
FrameShape shapeOf(const Array& array);

/// Throws a text that names the size when `width` or `height` is negative or above 65535, or when there are
/// more than 2^28 pixels.
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
    std::uint32_t width;   ///< pixels per row
    std::uint32_t height;  ///< rows

  protected:
    CTexture(std::uint32_t formatCode, std::uint32_t w, std::uint32_t h);
};

// One class per format, so that the format can be told from the dynamic type.
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

/// Creates a zero-filled buffer under a new handle; null for a format without a buffer class. Accepts three
/// times the width and number of pixels that checkFrameSize() does, because buffers of 8-bit RGB frames are
/// three times as wide as the frames.
std::unique_ptr<CTexture> createTexture(std::uint32_t format, std::uint32_t width, std::uint32_t height);

/// The array that a handle refers to. Throws the errors of the handle table, and a text when there is none.
Array& pixelsOf(int handle);

/// The input or output buffers of a step. After swapping handles, a buffer's handle may refer to an array of
/// another shape; writable() restores the shape.
class TextureSet
{
  public:
    /// Replaces the set by `count` buffers of the given size and format; the set is empty for a format
    /// without a buffer class. Throws the errors of createTexture().
    void create(std::int64_t width, std::int64_t height, std::uint32_t count, std::uint32_t format);
    /// One buffer whose array has the given shape instead of that of the format.
    void create(std::int64_t width, std::int64_t height, std::uint32_t format, const FrameShape& shape);
    void reset() { *this = TextureSet(); }

    std::uint32_t format() const { return format_; }
    std::uint32_t count() const { return static_cast<std::uint32_t>(textures_.size()); }
    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    const FrameShape& shape() const { return shape_; }

    /// Handle of a buffer. Throws "Handle::zero handle!!!" when there is no such buffer.
    int handle(std::size_t index = 0) const;
    /// The array under the buffer's handle, of whatever shape.
    Array& pixels(std::size_t index = 0) const { return pixelsOf(handle(index)); }
    /// The same array, after restoring the shape of the set.
    Array& writable(std::size_t index = 0) const;

  private:
    std::vector<std::unique_ptr<CTexture>> textures_;
    std::uint32_t format_ = 0, width_ = 0, height_ = 0;
    FrameShape shape_;
};

}  // namespace scansteps
