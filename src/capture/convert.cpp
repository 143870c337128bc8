// Conversion of camera frames: copying, or JPEG decoding and packing.
#include "capture/convert.h"

#include <algorithm>
#include <cstring>

#include "core/print.h"
#include "images/parse_error.h"
#include "jpeg/decoder.h"
#include "jpeg/pack_yuyv16.h"
#include "scansteps/chain.h"

namespace scansteps::capture {

void FrameConverter::open(const CaptureFormat& format)
{
    format_ = format;
    if (!format.jpeg) return;
    const auto width = static_cast<std::size_t>(format.width),
               height = static_cast<std::size_t>(format.height);
    luma_.assign(format.pixels(), 128);
    cb_.assign((width + 1) / 2 * ((height + 1) / 2), 128);
    cr_ = cb_;
}

std::string FrameConverter::decode(std::span<const std::uint8_t> file)
{
    const std::int64_t begin = microseconds();
    jpeg::BaselineJpegDecoder decoder;
    int width = 0, height = 0;
    if (decoder.parseHeader(file) != 0) return images::printParseError(decoder.getErrorString());
    decoder.getSize(width, height);
    if (width != format_.width || height != format_.height)
        return images::printParseError("frame of " + std::to_string(width) + " x " + std::to_string(height) +
                                       " from a camera of " + std::to_string(format_.width) + " x " +
                                       std::to_string(format_.height));
    decoder.setComponents({luma_, cb_, cr_});
    const int result = decoder.decode();
    std::string damage;
    if (result != 0) damage = images::printParseError(decoder.getErrorString());
    print::field(result, " result\n");
    print::field(microseconds() - begin, " time_count() - start0\n");
    return damage;
}

std::string FrameConverter::convert(std::span<const std::byte> frame, std::span<std::uint16_t> yuyv)
{
    if (!format_.jpeg) {
        const std::size_t bytes = std::min(frame.size(), yuyv.size_bytes());
        if (bytes != 0) std::memcpy(yuyv.data(), frame.data(), bytes);
        return {};
    }
    std::string damage = decode({reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size()});
    jpeg::packYuyv16(luma_, cb_, cr_, yuyv, static_cast<std::size_t>(format_.width),
                     static_cast<std::size_t>(format_.height));
    return damage;
}

}  // namespace scansteps::capture
