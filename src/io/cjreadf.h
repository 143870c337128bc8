// Step cjreadf: YUYV16 frames from numbered baseline JPEG files, decoded by the library itself.
#pragma once

#include <vector>

#include "io/image_source.h"

namespace scansteps {

/// A frame travels twice: under "handle", as every step takes it, and in the record as "data", for `d2h` and
/// for receivers of records.
class CjreadF final : public ImageSource
{
  public:
    const char* getName() override { return "CjreadF"; }

  private:
    std::optional<HeldImage> load(const std::string& path, Array&& memory) override;
    void describe(varitype& record) override;
    void deliver(Array& image, Array& frame, varitype& record) override;

    std::vector<std::uint8_t> planes_;
};

}  // namespace scansteps
