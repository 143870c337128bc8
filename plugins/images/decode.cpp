// Tells image formats by their first bytes.
#include "decode.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace scansteps::imageio {
namespace {

using Decode = Picture (*)(std::span<const std::uint8_t>, Array);

class SinglePicture final : public Pictures
{
  public:
    SinglePicture(Decode decode, std::span<const std::uint8_t> file) : decode_(decode), file_(file) {}
    Picture next(Array memory) override
    {
        done_ = true;
        return decode_(file_, std::move(memory));
    }
    bool more() override { return !done_; }

  private:
    Decode decode_;
    std::span<const std::uint8_t> file_;
    bool done_ = false;
};

}  // namespace

std::unique_ptr<Pictures> openPictures(std::span<const std::uint8_t> file)
{
    using namespace std::string_view_literals;
    const auto has = [&](std::size_t at, std::string_view text) {
        return file.size() >= at + text.size() &&
               std::equal(text.begin(), text.end(), file.begin() + static_cast<std::ptrdiff_t>(at),
                          [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
    };
    const auto single = [&](Decode decode) { return std::make_unique<SinglePicture>(decode, file); };
    if (has(0, "\x89PNG\r\n\x1a\n")) return single(decodePng);
    if (has(0, "\xff\xd8")) return single(decodeJpeg);
    if (has(0, "RIFF") && has(8, "WEBP")) return single(decodeWebp);
    for (const std::string_view mark : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv})
        if (has(0, mark)) return openTiff(file);
    for (const std::string_view mark : {"P2", "P3", "P5", "P6"})
        if (has(0, mark)) return single(decodePnm);
    if (file.empty()) throw DecodeError("an empty file");
    const bool isHeif = has(4, "ftyp");
    throw DecodeError(std::string(isHeif ? "a HEIF, AVIF or video file" : "an unknown format") +
                      "; PNG, TIFF, WebP, JPEG, PPM and PGM can be read");
}

}  // namespace scansteps::imageio
