// Step cjreadf: YUYV16 frames from numbered baseline JPEG files, decoded by the library itself.
#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

#include "core/print.h"
#include "images/image_source.h"
#include "images/input_file.h"
#include "images/parse_error.h"
#include "jpeg/decoder.h"
#include "jpeg/pack_yuyv16.h"
#include "scansteps/step_factory.h"

namespace scansteps::images {

/// Each frame is delivered twice: under "handle", as usual, and in the record as "data", for `d2h` and for
/// receivers of records.
class CjreadF final : public ImageSource
{
  public:
    CjreadF();
    const char* getName() override { return "CjreadF"; }

  private:
    void describe(varitype& record) override;
    void deliver(Array& image, Array& frame, varitype& record) override;
};

SCANSTEPS_FACTORY(cjreadf, CjreadF)

namespace {

/// Enough for any baseline JPEG image of a size that the decoder supports.
constexpr std::uint64_t kMaxFileSize = std::uint64_t{1} << 28U;

std::optional<std::vector<std::uint8_t>> readFile(const std::string& path, ImageTrouble& trouble)
{
    InputFile file(path);
    std::vector<std::uint8_t> bytes;
    if (file.isOpen()) bytes = file.readRest(kMaxFileSize);
    if (file.error() == 0) return bytes;
    trouble = {file.reason(), file.missing()};
    print::line("!ifs");
    return std::nullopt;
}

/// Luma, Cb and Cr.
using Planes = std::array<std::span<std::uint8_t>, 3>;

// The plane for even columns, which carry Cb, comes last in `planes`.
Planes decode(jpeg::BaselineJpegDecoder& decoder, std::size_t width, std::size_t height,
              std::vector<std::uint8_t>& planes, ImageTrouble& trouble)
{
    planes.resize((2 * height + 32) * width);
    const std::size_t chroma = decoder.planeSize(1, jpeg::JpegLayout::kYuv420).samples();
    const auto luma = std::span(planes).first(width * height);
    const auto cr = std::span(planes).subspan(luma.size(), chroma);
    const auto cb = std::span(planes).subspan(luma.size() + chroma, chroma);
    decoder.setComponents({luma, cb, cr});
    if (const int result = decoder.decode(); result != 0) {
        trouble.reason = printParseError(decoder.getErrorString());
        print::field(result, " result\n");
        // Decode again over grey, so that missing parts do not show the previous picture.
        std::ranges::fill(planes, std::uint8_t{128});
        decoder.decode();
    }
    return {luma, cb, cr};
}

std::optional<HeldImage> load(const std::string& path, HeldImage&& spare, ImageTrouble& trouble)
{
    const std::optional<std::vector<std::uint8_t>> file = readFile(path, trouble);
    if (!file) return std::nullopt;
    jpeg::BaselineJpegDecoder decoder;
    if (decoder.parseHeader(*file) != 0) {
        trouble.reason = printParseError(decoder.getErrorString());
        return std::nullopt;
    }
    HeldImage image = std::move(spare);
    decoder.getSize(image.width, image.height);
    const auto width = std::size_t(image.width);
    const auto height = std::size_t(image.height);
    const auto [luma, cb, cr] = decode(decoder, width, height, image.planes, trouble);
    image.pixels.reshape(Kind::Ushort, std::uint32_t(width), std::uint32_t(height));
    jpeg::packYuyv16(luma, cb, cr, image.pixels.elements<std::uint16_t>(), width, height);
    return image;
}

}  // namespace

CjreadF::CjreadF() : ImageSource(load) {}

void CjreadF::describe(varitype& record)
{
    record.set("VideoFormat", "YUYV16");
}

// The record takes over the image and the output buffer gets a copy: delivering both costs a single copy.
void CjreadF::deliver(Array& image, Array& frame, varitype& record)
{
    frame = image;
    record.set("data", std::move(image));
}

}  // namespace scansteps::images
