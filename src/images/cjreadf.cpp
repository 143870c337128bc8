#include "images/cjreadf.h"

#include <algorithm>
#include <utility>

#include "core/print.h"
#include "core/step_factory.h"
#include "images/input_file.h"
#include "images/parse_error.h"
#include "jpeg/decoder.h"
#include "jpeg/pack_yuyv16.h"

namespace scansteps::images {

SCANSTEPS_FACTORY(cjreadf, CjreadF)

namespace {

/// No baseline JPEG image of the sizes that the decoder takes needs more.
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

}  // namespace

// Samples carry Cb in even columns and Cr in odd ones, and the second chroma plane is that of even columns.
CjreadF::Planes CjreadF::decode(jpeg::BaselineJpegDecoder& decoder, std::size_t width, std::size_t height,
                                ImageTrouble& trouble)
{
    planes_.resize((2 * height + 32) * width);
    const std::size_t chroma = decoder.planeSize(1, jpeg::JpegLayout::kYuv420).samples();
    const auto luma = std::span(planes_).first(width * height);
    const auto cr = std::span(planes_).subspan(luma.size(), chroma);
    const auto cb = std::span(planes_).subspan(luma.size() + chroma, chroma);
    decoder.setComponents({luma, cb, cr});
    if (const int result = decoder.decode(); result != 0) {
        trouble.reason = printParseError(decoder.getErrorString());
        print::field(result, " result\n");
        // Once more over grey, so that what is missing does not show the picture before.
        std::ranges::fill(planes_, std::uint8_t{128});
        decoder.decode();
    }
    return {luma, cb, cr};
}

std::optional<HeldImage> CjreadF::load(const std::string& path, Array&& memory, ImageTrouble& trouble)
{
    const std::optional<std::vector<std::uint8_t>> file = readFile(path, trouble);
    if (!file) return std::nullopt;
    jpeg::BaselineJpegDecoder decoder;
    if (decoder.parseHeader(*file) != 0) {
        trouble.reason = printParseError(decoder.getErrorString());
        return std::nullopt;
    }
    HeldImage image;
    decoder.getSize(image.width, image.height);
    const auto width = std::size_t(image.width);
    const auto height = std::size_t(image.height);
    const auto [luma, cb, cr] = decode(decoder, width, height, trouble);
    image.pixels = std::move(memory);
    image.pixels.reshape(Kind::Ushort, std::uint32_t(width), std::uint32_t(height));
    jpeg::packYuyv16(luma, cb, cr, image.pixels.elements<std::uint16_t>(), width, height);
    return image;
}

void CjreadF::describe(varitype& record)
{
    record.set("VideoFormat", "YUYV16");
}

// The record takes over the image and the output buffer gets a copy: one copy of the pixels, as with one
// form.
void CjreadF::deliver(Array& image, Array& frame, varitype& record)
{
    frame = image;
    record.set("data", std::move(image));
}

}  // namespace scansteps::images
