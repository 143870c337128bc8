// Image files in memory as pictures. The content decides which format it is. No step, record or handle here.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "picture.h"

namespace scansteps::imageio {

/// A file that gives one picture after the other: pages of a TIFF file, a single picture of the other
/// formats.
class Pictures
{
  public:
    virtual ~Pictures() = default;
    /// Decodes the next picture, reusing `memory`. Throws DecodeError when nothing of it can be decoded, and
    /// std::bad_alloc; a picture of which only a part could be decoded has `damage`.
    virtual Picture next(Array memory) = 0;
    /// Whether there is another picture.
    virtual bool more() = 0;
};

/// Opens PNG, TIFF, WebP, JPEG and binary or plain PPM and PGM. `file` must outlive the result. Throws
/// DecodeError for other contents, and for a TIFF file whose first directory is damaged.
std::unique_ptr<Pictures> openPictures(std::span<const std::uint8_t> file);

// The formats, for openPictures().
Picture decodePng(std::span<const std::uint8_t> file, Array memory);
Picture decodeWebp(std::span<const std::uint8_t> file, Array memory);
Picture decodeJpeg(std::span<const std::uint8_t> file, Array memory);
Picture decodePnm(std::span<const std::uint8_t> file, Array memory);
std::unique_ptr<Pictures> openTiff(std::span<const std::uint8_t> file);

}  // namespace scansteps::imageio
