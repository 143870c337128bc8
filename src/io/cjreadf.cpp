#include "io/cjreadf.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/files.h"
#include "framework/print.h"
#include "framework/step_factory.h"
#include "io/baseline_jpeg.h"
#include "io/pack_yuyv16.h"

namespace scansteps {

SCANSTEPS_STEP(CjreadF)

namespace {

/// No baseline JPEG image of the sizes that the decoder takes needs more.
constexpr std::size_t kMaxFileSize = std::size_t{1} << 28U;

std::optional<std::vector<std::uint8_t>> readFile(const std::string& path)
{
    const File file = openFile(path, "rb");
    if (!file) return std::nullopt;
    std::vector<std::uint8_t> bytes;
    std::size_t used = 0;
    for (std::size_t got = 1; got > 0 && used <= kMaxFileSize; used += got) {
        if (bytes.size() - used < 4096) bytes.resize(std::max(bytes.size() * 2, std::size_t{1} << 18U));
        got = std::fread(bytes.data() + used, 1, bytes.size() - used, file.get());
    }
    if (used > kMaxFileSize) return std::nullopt;
    bytes.resize(used);
    return bytes;
}

std::nullopt_t refuse(const BaselineJpegDecoder& decoder)
{
    const std::string_view reason = decoder.getErrorString();
    print::text(reason);
    if (!reason.ends_with('\n')) print::text("\n");
    print::line("parse error!");
    return std::nullopt;
}

}  // namespace

std::optional<HeldImage> CjreadF::load(const std::string& path, Array&& memory)
{
    const std::optional<std::vector<std::uint8_t>> file = readFile(path);
    if (!file) {
        print::line("!ifs");
        return std::nullopt;
    }
    BaselineJpegDecoder decoder;
    if (decoder.parseHeader(*file) != 0) return refuse(decoder);
    HeldImage image;
    decoder.getSize(image.width, image.height);
    const auto width = std::size_t(image.width);
    const auto height = std::size_t(image.height);

    // Samples carry Cb in even columns and Cr in odd ones, and the second chroma plane is that of even
    // columns.
    planes_.resize((2 * height + 32) * width);
    const std::size_t chroma = decoder.planeSize(1, JpegLayout::kYuv420).samples();
    const auto luma = std::span(planes_).first(width * height);
    const auto cr = std::span(planes_).subspan(luma.size(), chroma);
    const auto cb = std::span(planes_).subspan(luma.size() + chroma, chroma);
    decoder.setComponents({luma, cb, cr});
    if (const int result = decoder.decode(); result != 0) {
        print::field(result, " result\n");
        return refuse(decoder);
    }
    image.pixels = std::move(memory);
    image.pixels.reshape(Kind::Ushort, std::uint32_t(width), std::uint32_t(height));
    packYuyv16(luma, cb, cr, image.pixels.elements<std::uint16_t>(), width, height);
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

}  // namespace scansteps
