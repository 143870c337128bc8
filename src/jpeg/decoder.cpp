// Connects header parsing and scan decoding, and derives the plane sizes.
#include "jpeg/decoder.h"

#include "jpeg/huffman.h"
#include "jpeg/idct.h"
#include "jpeg/scan.h"

namespace scansteps::jpeg {

namespace {

constexpr int divideUp(int value, int by)
{
    return (value + by - 1) / by;
}

/// Size of a component in the file, in samples.
JpegPlaneSize nativeSize(const JpegHeader& header, std::size_t index)
{
    const JpegComponent& luma = header.components[0];
    const JpegComponent& component = header.components[index];
    return {divideUp(header.width * component.horizontal, luma.horizontal),
            divideUp(header.height * component.vertical, luma.vertical)};
}

/// Number of samples in the file that are averaged to one of the plane, in each direction.
JpegPlaneSize averaging(const JpegHeader& header, std::size_t index, JpegLayout layout)
{
    if (index == 0 || layout == JpegLayout::kNative) return {1, 1};
    const JpegComponent& luma = header.components[0];
    return {2 / luma.horizontal, 2 / luma.vertical};
}

JpegPlaneSize sizeOf(const JpegHeader& header, std::size_t index, JpegLayout layout)
{
    const JpegPlaneSize native = nativeSize(header, index);
    const JpegPlaneSize average = averaging(header, index, layout);
    return {divideUp(native.width, average.width), divideUp(native.height, average.height)};
}

JpegScanComponent scanComponent(const JpegHeader& header, std::size_t index, JpegLayout layout)
{
    const JpegComponent& component = header.components[index];
    const JpegPlaneSize native = nativeSize(header, index);
    const JpegPlaneSize average = averaging(header, index, layout);
    const JpegPlaneSize plane = sizeOf(header, index, layout);
    JpegScanComponent result;
    result.horizontal = component.horizontal;
    result.vertical = component.vertical;
    result.dcTable = component.dcTable;
    result.acTable = component.acTable;
    for (unsigned i = 0; i < 64; ++i)
        result.quant[pairedPosition(i)] = header.quant[std::size_t(component.quantTable)][i];
    result.width = native.width;
    result.height = native.height;
    result.averageX = average.width;
    result.averageY = average.height;
    result.planeWidth = plane.width;
    result.planeHeight = plane.height;
    return result;
}

}  // namespace

int BaselineJpegDecoder::parseHeader(std::span<const std::uint8_t> file)
{
    file_ = file;
    parsed_ = parseJpegHeader(file, header_, error_);
    return parsed_ ? 0 : -1;
}

void BaselineJpegDecoder::getSize(int& width, int& height) const
{
    width = header_.width;
    height = header_.height;
}

JpegPlaneSize BaselineJpegDecoder::planeSize(int index, JpegLayout layout) const
{
    return sizeOf(header_, std::size_t(index), layout);
}

int BaselineJpegDecoder::decode(JpegLayout layout)
{
    if (!parsed_) {
        error_.set("No parsed header to decode\n");
        return -1;
    }
    const auto tables = std::make_unique<JpegScanTables>(header_.dc, header_.ac);
    JpegScan scan;
    scan.data = file_.subspan(header_.scanOffset);
    scan.restartInterval = header_.restartInterval;
    scan.mcusX = divideUp(header_.width, 8 * header_.components[0].horizontal);
    scan.mcusY = divideUp(header_.height, 8 * header_.components[0].vertical);
    scan.tables = tables.get();
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t needed = sizeOf(header_, i, layout).samples();
        if (planes_[i].size() < needed) {
            error_.set("Plane %d needs %zu samples (got %zu)\n", int(i), needed, planes_[i].size());
            return -1;
        }
        scan.components[i] = scanComponent(header_, i, layout);
        scan.components[i].plane = planes_[i].data();
    }
    switch (decodeJpegScan(scan)) {
        case JpegScanResult::kOk:
            return 0;
        case JpegScanResult::kEndOfData:
            error_.set("Bad huffman data (buffer overflow)");
            break;
        case JpegScanResult::kBadCode:
            error_.set("Bad huffman data (no such code)");
            break;
        case JpegScanResult::kNoRestartMarker:
            error_.set("EOF while search for a RST marker.");
            break;
    }
    return -1;
}

}  // namespace scansteps::jpeg
