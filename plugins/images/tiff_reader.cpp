// TIFF files through libtiff, page by page. Grey, RGB and CMYK of 8 and 16 bits are taken sample by sample,
// from strips and tiles, interleaved and in planes; everything else of up to 8 bits (palettes, bilevel,
// YCbCr, Lab) as libtiff converts it to RGBA.
#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "decode.h"
#include "tiff_file.h"

namespace scansteps::imageio {
namespace {

/// What the tags of a page say.
struct Page
{
    std::uint32_t width = 0, height = 0;
    unsigned bits = 1, samples = 1, photometric = 0, format = SAMPLEFORMAT_UINT;
    bool inPlanes = false;
    int colours = 0;  ///< of samples that are taken as they are; 0: libtiff converts
    bool hasAlpha = false;
    bool isGrey = false;
};

Page pageOf(const TiffFile& file)
{
    Page page;
    page.width = file.tag<std::uint32_t>(TIFFTAG_IMAGEWIDTH);
    page.height = file.tag<std::uint32_t>(TIFFTAG_IMAGELENGTH);
    page.bits = file.tag<std::uint16_t>(TIFFTAG_BITSPERSAMPLE);
    page.samples = file.tag<std::uint16_t>(TIFFTAG_SAMPLESPERPIXEL);
    page.photometric = file.tag<std::uint16_t>(TIFFTAG_PHOTOMETRIC);
    page.format = file.tag<std::uint16_t>(TIFFTAG_SAMPLEFORMAT);
    page.inPlanes = file.tag<std::uint16_t>(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE;
    page.isGrey = page.photometric == PHOTOMETRIC_MINISBLACK || page.photometric == PHOTOMETRIC_MINISWHITE;
    const int colours = page.isGrey                                 ? 1
                        : page.photometric == PHOTOMETRIC_RGB       ? 3
                        : page.photometric == PHOTOMETRIC_SEPARATED ? 4
                                                                    : 0;
    const bool isCmyk = colours != 4 || file.tag<std::uint16_t>(TIFFTAG_INKSET) == INKSET_CMYK;
    if ((page.bits == 8 || page.bits == 16) && isCmyk && page.samples >= static_cast<unsigned>(colours))
        page.colours = colours;
    std::uint16_t extras = 0;
    std::uint16_t* kinds = nullptr;
    if (TIFFGetFieldDefaulted(file.get(), TIFFTAG_EXTRASAMPLES, &extras, &kinds) != 0)
        page.hasAlpha = std::any_of(kinds, kinds + extras, [](std::uint16_t kind) {
            return kind == EXTRASAMPLE_ASSOCALPHA || kind == EXTRASAMPLE_UNASSALPHA;
        });
    return page;
}

void checkPage(TIFF* tiff, const Page& page, std::uint64_t fileBytes)
{
    checkPictureSize(page.width, page.height, fileBytes);
    // Each has an entry in the file, and trying to read it takes time.
    if ((TIFFIsTiled(tiff) != 0 ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff)) > fileBytes)
        throw DecodeError("more strips or tiles than the file can hold");
    if (page.format != SAMPLEFORMAT_UINT && page.format != SAMPLEFORMAT_VOID)
        throw DecodeError("samples that are not unsigned integers");
    if (page.samples < 1 || page.samples > 16)
        throw DecodeError(std::to_string(page.samples) + " samples per pixel");
    if (page.colours == 0 && page.bits > 8)
        throw DecodeError(std::to_string(page.bits) + "-bit samples of this kind of colour");
}

/// A strip or tile in which pixels are stored: columns x ... x + width - 1 of rows y ... y + height - 1.
struct Part
{
    std::uint32_t x, y, width, height, rowPixels;
};

/// Reads strips and tiles of samples that are taken as they are.
class PartReader
{
  public:
    PartReader(TiffFile& file, const Page& page, PictureRows& rows, std::uint64_t fileBytes)
        : file_(file), page_(page), rows_(rows), perPixel_(page.inPlanes ? 1 : page.samples)
    {
        const std::uint64_t size = isTiled() ? TIFFTileSize64(file.get()) : TIFFStripSize64(file.get());
        const std::uint64_t most = std::max(4 * kBytesAlways, fileBytes * kBytesPerFileByte);
        if (size == 0 || size > most) throw DecodeError("strips or tiles of an impossible size");
        planes_.resize(page.inPlanes ? static_cast<std::size_t>(page.colours) : 1);
        for (auto& plane : planes_) plane.resize(static_cast<std::size_t>(size));
    }
    /// Whether any part could be read; the others are left as they are.
    bool readAll()
    {
        std::uint32_t width = page_.width, height = page_.height;
        if (isTiled()) {
            width = file_.tag<std::uint32_t>(TIFFTAG_TILEWIDTH);
            height = file_.tag<std::uint32_t>(TIFFTAG_TILELENGTH);
        } else {
            height = std::min(height, file_.tag<std::uint32_t>(TIFFTAG_ROWSPERSTRIP));
        }
        const std::uint64_t rowBytes = std::uint64_t{width} * perPixel_ * page_.bits / 8;
        if (width == 0 || height == 0 || rowBytes * height > planes_[0].size())
            throw DecodeError("strips or tiles of an impossible size");
        bool any = false;
        for (std::uint64_t y = 0; y < page_.height; y += height)
            for (std::uint64_t x = 0; x < page_.width; x += width) {
                const auto left = static_cast<std::uint32_t>(x), top = static_cast<std::uint32_t>(y);
                any |= read({left, top, std::min(width, page_.width - left),
                             std::min(height, page_.height - top), width});
            }
        return any;
    }

  private:
    bool isTiled() const { return TIFFIsTiled(file_.get()) != 0; }
    bool read(const Part& part)
    {
        for (std::size_t plane = 0; plane < planes_.size(); ++plane) {
            auto& buffer = planes_[plane];
            const auto sample = static_cast<std::uint16_t>(plane);
            const auto size = static_cast<tmsize_t>(buffer.size());
            // The last strip is shorter; what a damaged one lacks is not that of the strip before.
            std::fill(buffer.begin(), buffer.end(), std::uint8_t{0});
            const tmsize_t got =
                isTiled() ? TIFFReadEncodedTile(file_.get(),
                                                TIFFComputeTile(file_.get(), part.x, part.y, 0, sample),
                                                buffer.data(), size)
                          : TIFFReadEncodedStrip(file_.get(), TIFFComputeStrip(file_.get(), part.y, sample),
                                                 buffer.data(), size);
            if (got < 0) return false;
        }
        const std::size_t rowBytes = std::size_t{part.rowPixels} * perPixel_ * page_.bits / 8;
        for (std::uint32_t row = 0; row < part.height; ++row)
            rows_.put(part.y + row, part.x, part.width, pixels(row * rowBytes, part.width));
        return true;
    }
    // The pixels of one row, those in planes interleaved.
    const void* pixels(std::size_t offset, std::size_t count)
    {
        if (planes_.size() == 1) return planes_[0].data() + offset;
        const std::size_t bytes = page_.bits / 8, pixelBytes = bytes * planes_.size();
        row_.resize(count * pixelBytes);
        for (std::size_t plane = 0; plane < planes_.size(); ++plane)
            for (std::size_t i = 0; i < count; ++i)
                std::copy_n(planes_[plane].data() + offset + i * bytes, bytes,
                            row_.data() + i * pixelBytes + plane * bytes);
        return row_.data();
    }

    TiffFile& file_;
    const Page& page_;
    PictureRows& rows_;
    unsigned perPixel_;
    std::vector<std::vector<std::uint8_t>> planes_;
    std::vector<std::uint8_t> row_;
};

class TiffPictures final : public Pictures
{
  public:
    explicit TiffPictures(std::span<const std::uint8_t> bytes) : file_(bytes), size_(bytes.size())
    {
        if (!file_.isOpen()) throw DecodeError(reason());
    }
    bool more() override
    {
        if (ahead_) return *ahead_;
        // Thumbnails, smaller copies and masks are no pages.
        do ahead_ = TIFFReadDirectory(file_.get()) != 0;
        while (*ahead_ && (file_.tag<std::uint32_t>(TIFFTAG_SUBFILETYPE) &
                           (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) != 0);
        return *ahead_;
    }
    Picture next(Array memory) override
    try {
        ahead_.reset();
        file_.takeError();
        const Page page = pageOf(file_);
        checkPage(file_.get(), page, size_);
        Picture picture =
            page.colours != 0 ? samples(page, std::move(memory)) : converted(page, std::move(memory));
        picture.droppedAlpha = page.hasAlpha;
        picture.orientation = file_.tag<std::uint16_t>(TIFFTAG_ORIENTATION);
        return picture;
    } catch (const DecodeError& error) {
        if (std::string_view(error.what()).starts_with("TIFF file")) throw;
        throw DecodeError(std::string("TIFF file: ") + error.what());
    }

  private:
    std::string reason()
    {
        const std::string error = file_.takeError();
        return "TIFF file: " + (error.empty() ? "damaged" : error);
    }
    Picture samples(const Page& page, Array&& memory)
    {
        const RowLayout layout{page.colours, page.inPlanes ? page.colours : static_cast<int>(page.samples),
                               static_cast<int>(page.bits), page.photometric == PHOTOMETRIC_MINISWHITE};
        PictureRows rows(layout, page.width, page.height, size_, std::move(memory));
        const bool any = PartReader(file_, page, rows, size_).readAll();
        const std::string error = file_.takeError();
        if (!any) throw DecodeError("TIFF file: " + error);
        return rows.take(error.empty() ? "" : "TIFF file: " + error);
    }
    Picture converted(const Page& page, Array&& memory)
    {
        PictureRows rows({page.isGrey ? 1 : 3, 4, 8}, page.width, page.height, size_, std::move(memory));
        std::vector<std::uint32_t> raster(std::size_t{page.width} * page.height);
        char why[1024] = "";
        TIFFRGBAImage image;
        if (TIFFRGBAImageOK(file_.get(), why) == 0 || TIFFRGBAImageBegin(&image, file_.get(), 0, why) == 0)
            throw DecodeError(*why != '\0' ? std::string(why) : reason());
        image.req_orientation = image.orientation;  // rows stay as they are stored
        const bool whole = TIFFRGBAImageGet(&image, raster.data(), page.width, page.height) != 0;
        TIFFRGBAImageEnd(&image);
        const std::string error = file_.takeError();
        if (!whole) throw DecodeError("TIFF file: " + error);
        std::vector<std::uint8_t> row(std::size_t{page.width} * 4);
        for (std::size_t y = 0; y < page.height; ++y) {
            for (std::size_t x = 0; x < page.width; ++x) {
                const std::uint32_t pixel = raster[y * page.width + x];
                row[4 * x] = static_cast<std::uint8_t>(TIFFGetR(pixel));
                row[4 * x + 1] = static_cast<std::uint8_t>(TIFFGetG(pixel));
                row[4 * x + 2] = static_cast<std::uint8_t>(TIFFGetB(pixel));
            }
            rows.put(y, 0, page.width, row.data());
        }
        return rows.take(error.empty() ? "" : "TIFF file: " + error);
    }

    TiffFile file_;
    std::uint64_t size_;
    std::optional<bool> ahead_ = true;  // the first directory has been read
};

}  // namespace

std::unique_ptr<Pictures> openTiff(std::span<const std::uint8_t> file)
{
    return std::make_unique<TiffPictures>(file);
}

}  // namespace scansteps::imageio
