// Loading and writing of image files: chooses the format; ppm_file and jpeg_file do the work.
#include "images/image_file.h"

#include <algorithm>

#include "core/atomic_file.h"
#include "core/print.h"
#include "images/input_file.h"
#include "images/jpeg_file.h"
#include "images/ppm_file.h"

namespace scansteps::images {
namespace {

// Enough for any picture that fits a frame.
constexpr std::uint64_t kMaxJpegFileBytes = std::uint64_t{1} << 30U;

std::optional<RgbImage> readImage(InputFile& file, Array memory, std::string& reason)
{
    const int first = file.get();
    if (first == 'P')
        if (const auto magic = readPpmMagic(file)) return readPpm(file, *magic, std::move(memory), reason);
    if (first >= 0 && first != 'P') file.unget();
    std::vector<std::uint8_t> bytes = file.readRest(kMaxJpegFileBytes);
    if (first == 'P') bytes.insert(bytes.begin(), 'P');
    if (file.error() != 0) return std::nullopt;
    const std::uint64_t maxBytes = std::max(kJpegBytesAlways, bytes.size() * kJpegBytesPerFileByte);
    return readJpeg(bytes, maxBytes, std::move(memory), reason);
}

bool holdsAnyOf(const std::string& name, std::initializer_list<const char*> texts)
{
    return std::any_of(texts.begin(), texts.end(),
                       [&](const char* text) { return name.find(text) != std::string::npos; });
}

void writePpm(AtomicFile& file, int width, int height, std::span<const std::uint8_t> rgb)
{
    file.write("P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n");
    file.write(rgb);
}

bool isJpegName(const std::string& path)
{
    return holdsAnyOf(path, {".jpg", ".jpeg", ".JPG", ".JPEG"});
}

std::vector<std::uint8_t> repeatedThrice(std::span<const std::uint8_t> grey)
{
    std::vector<std::uint8_t> rgb(3 * grey.size());
    for (std::size_t i = 0; i < grey.size(); ++i) std::fill_n(rgb.data() + 3 * i, 3, grey[i]);
    return rgb;
}

// Returns why nothing was written, or an empty string.
std::string writeRgb(const std::string& path, int quality, int width, int height,
                     std::span<const std::uint8_t> rgb)
{
    AtomicFile file(path);
    if (!file.isOpen()) {
        print::fileTrouble("can't open ", path);
        return file.reason();
    }
    std::string reason;
    try {
        if (isJpegName(path))
            reason = writeJpeg(file, quality, width, height, rgb);
        else
            writePpm(file, width, height, rgb);
        if (reason.empty()) file.commit();
    } catch (const char* text) {
        reason = file.reason().empty() ? text : file.reason();
    }
    if (!reason.empty()) print::fileTrouble("can't write ", path, reason);
    return reason;
}

std::string writePicture(const std::string& path, int quality, int width, int height, bool isRgb,
                         std::span<const std::uint8_t> pixels)
{
    const bool isPpm = !isJpegName(path) && holdsAnyOf(path, {".ppm", ".PPM"});
    if (!isJpegName(path) && !isPpm) return "the name tells neither JPEG nor PPM";
    if (width < 1 || height < 1) return "an image without pixels";
    if (isPpm && !isRgb) return "PPM files are written in colour only";
    const std::size_t rowBytes = static_cast<std::size_t>(width) * (isRgb ? 3 : 1);
    if (pixels.size() / rowBytes < static_cast<std::size_t>(height)) return "too few pixels";
    const auto picture = pixels.first(rowBytes * static_cast<std::size_t>(height));
    return isRgb ? writeRgb(path, quality, width, height, picture)
                 : writeRgb(path, quality, width, height, repeatedThrice(picture));
}

}  // namespace

std::optional<RgbImage> loadImage(const std::string& path, Array memory, ImageTrouble* trouble)
{
    InputFile file(path);
    ImageTrouble found;
    std::optional<RgbImage> image;
    if (file.isOpen())
        image = readImage(file, std::move(memory), found.reason);
    else
        print::line("image file not found");
    if (file.error() != 0) {
        image.reset();
        found = {file.reason(), file.missing()};
    }
    if (file.isOpen() && !found.reason.empty()) print::fileTrouble("", path, found.reason);
    if (trouble != nullptr) *trouble = std::move(found);
    return image;
}

bool writeImage(const std::string& path, int quality, int width, int height, bool isRgb,
                std::span<const std::uint8_t> pixels, std::string* reason)
{
    std::string found = writePicture(path, quality, width, height, isRgb, pixels);
    const bool written = found.empty();
    if (reason != nullptr) *reason = std::move(found);
    return written;
}

}  // namespace scansteps::images
