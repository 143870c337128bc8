// Writes the frames of a recording as image files that common viewers open.
#pragma once

#include <cstdint>
#include <filesystem>

#include "scansteps/record.h"

namespace scansteps::host {

/// Writes the embedded frames of records as frame000001.png and so on: 8-bit samples as they are, a row of
/// three times the recorded width as RGB; 16-bit samples as 16-bit grey; YUYV16 frames as 8-bit RGB; every
/// other kind mapped linearly from its minimum and maximum to 16-bit grey.
class FrameFiles
{
  public:
    /// Creates the folder. Throws FileError.
    explicit FrameFiles(const std::filesystem::path& folder);
    /// Writes the frame of the record, if it has one; remembers the geometry of an initialise record.
    void add(const Struct& record);
    std::uint64_t written() const { return written_; }

  private:
    void write(const Array& frame);

    std::filesystem::path folder_;
    std::uint32_t width_ = 0;
    bool isVideo_ = false;
    std::uint64_t written_ = 0;
};

}  // namespace scansteps::host
