// WebP files through libwebp.
#include <webp/decode.h>
#include <webp/demux.h>

#include <memory>
#include <string>

#include "decode.h"
#include "exif.h"

namespace scansteps::imageio {
namespace {

struct DeleteDemuxer
{
    void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};
struct DeleteDecoder
{
    void operator()(WebPIDecoder* decoder) const { WebPIDelete(decoder); }
};

int orientationOf(const WebPData& file)
{
    WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemuxPartial(&file, &state));
    WebPChunkIterator chunk{};
    if (!demuxer || WebPDemuxGetChunk(demuxer.get(), "EXIF", 1, &chunk) == 0) return 1;
    const int code = exifOrientation({chunk.chunk.bytes, chunk.chunk.size});
    WebPDemuxReleaseChunkIterator(&chunk);
    return code;
}

}  // namespace

Picture decodeWebp(std::span<const std::uint8_t> file, Array memory)
{
    WebPBitstreamFeatures features{};
    const VP8StatusCode header = WebPGetFeatures(file.data(), file.size(), &features);
    if (header == VP8_STATUS_NOT_ENOUGH_DATA) throw DecodeError("WebP file: it ends too early");
    if (header != VP8_STATUS_OK) throw DecodeError("WebP file: the header is damaged");
    if (features.has_animation != 0)
        throw DecodeError("WebP file: an animation; save its frames as files first");
    const auto width = static_cast<std::uint64_t>(features.width),
               height = static_cast<std::uint64_t>(features.height);
    PictureRows rows({}, width, height, file.size(), std::move(memory));
    Picture picture = rows.take();
    picture.droppedAlpha = features.has_alpha != 0;
    picture.orientation = orientationOf({file.data(), file.size()});

    const std::unique_ptr<WebPIDecoder, DeleteDecoder> decoder(
        WebPINewRGB(MODE_RGB, reinterpret_cast<std::uint8_t*>(picture.pixels.data()),
                    picture.pixels.byteSize(), 3 * features.width));
    if (!decoder) throw std::bad_alloc();
    const VP8StatusCode status = WebPIUpdate(decoder.get(), file.data(), file.size());
    if (status == VP8_STATUS_OUT_OF_MEMORY) throw std::bad_alloc();
    int rowsDone = 0;
    if (status != VP8_STATUS_OK) {
        picture.damage = status == VP8_STATUS_SUSPENDED ? "WebP file: it ends too early"
                                                        : "WebP file: the data are damaged";
        if (WebPIDecGetRGB(decoder.get(), &rowsDone, nullptr, nullptr, nullptr) == nullptr || rowsDone < 1)
            throw DecodeError(picture.damage);
    }
    return picture;
}

}  // namespace scansteps::imageio
