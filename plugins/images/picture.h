// Pictures as frames hold them, and the conversion of rows of samples as image files hold them. Files are
// untrusted input: the size of a picture is checked here before memory is taken.
#pragma once

#include <scansteps/array.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace scansteps::imageio {

/// Why a file gives no picture at all.
struct DecodeError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// A decoded picture, rows from top to bottom: 8-bit RGB (unsigned chars, 3 × width a row), or grey as 16-bit
/// samples (unsigned shorts, width a row): those of 16-bit files as they are, those of 8-bit files stored as
/// 32768 + v.
struct Picture
{
    Array pixels;
    int orientation = 1;        ///< EXIF code, 1 to 8, that is still to be applied; see upright()
    bool reducedDepth = false;  ///< 16-bit colour was rounded to 8 bits
    bool droppedAlpha = false;  ///< the file has transparency
    std::string damage;         ///< why rows are missing (they are 0); otherwise empty

    bool isGrey() const { return pixels.kind() == Kind::Ushort; }
    int width() const { return static_cast<int>(pixels.dim(0) / (isGrey() ? 1 : 3)); }
    int height() const { return static_cast<int>(pixels.dim(1)); }
};

/// Limits of the decoded size of a file, of which the larger one holds: a constant (22 megapixels of RGB),
/// and a multiple of the size of the file, above what Deflate (1032) and the Huffman codes of JPEG (1536) can
/// express. In addition, width and height are at most 65535 and a picture has at most 2^28 pixels.
inline constexpr std::uint64_t kBytesAlways = std::uint64_t{64} << 20U;
inline constexpr std::uint64_t kBytesPerFileByte = 1536;

/// Throws DecodeError when a file of `fileBytes` bytes cannot hold that many pixels, or claims none.
void checkPictureSize(std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes);

/// How pixels lie in the rows that a decoder provides.
struct RowLayout
{
    int colours = 3;        ///< 1 grey, 3 RGB, 4 CMYK
    int samples = 3;        ///< per pixel; those after the colours are ignored
    int bits = 8;           ///< 8, or 16 in the byte order of this machine
    bool inverted = false;  ///< grey: 0 is white; CMYK: 0 is full ink
};

/// Takes rows in the layout of a file and stores them as a picture. put() does not throw, so that it can be
/// called from code that may be left by longjmp.
class PictureRows
{
  public:
    /// Checks the size. `memory` of an earlier picture is reused if it has the right size.
    PictureRows(RowLayout layout, std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes,
                Array memory);
    /// Converts `count` pixels, which lie at `row`, to the columns from `x` on of row `y`.
    void put(std::size_t y, std::size_t x, std::size_t count, const void* row);
    Picture take(std::string damage = {});

  private:
    RowLayout layout_;
    std::size_t width_;
    Array pixels_;
};

/// Applies the orientation of a picture: afterwards it is 1, and for 5 to 8 width and height are swapped.
void upright(Picture& picture);

}  // namespace scansteps::imageio
