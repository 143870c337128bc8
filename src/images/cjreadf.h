// Step cjreadf: YUYV16 frames from numbered baseline JPEG files, decoded by the library itself.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "images/image_source.h"

namespace scansteps::jpeg {
class BaselineJpegDecoder;
}

namespace scansteps::images {

/// A frame travels twice: under "handle", as every step takes it, and in the record as "data", for `d2h` and
/// for receivers of records.
class CjreadF final : public ImageSource
{
  public:
    const char* getName() override { return "CjreadF"; }

  private:
    std::optional<HeldImage> load(const std::string& path, Array&& memory, ImageTrouble& trouble) override;
    void describe(varitype& record) override;
    void deliver(Array& image, Array& frame, varitype& record) override;

    /// Luma, Cb and Cr, in `planes_`.
    using Planes = std::array<std::span<std::uint8_t>, 3>;
    Planes decode(jpeg::BaselineJpegDecoder& decoder, std::size_t width, std::size_t height,
                  ImageTrouble& trouble);

    std::vector<std::uint8_t> planes_;
};

}  // namespace scansteps::images
