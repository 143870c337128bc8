// Parsing and validation of the markers before the scan.
#include "jpeg/header.h"

#include <algorithm>
#include <numeric>

#include "jpeg/huffman.h"

namespace scansteps::jpeg {

const std::array<std::uint8_t, 64> kJpegNaturalOrder = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

JpegHeader::JpegHeader()
    : dc{standardDcTable(0), standardDcTable(1)}, ac{standardAcTable(0), standardAcTable(1)}
{
}

namespace {

constexpr int kMaxSize = 4096;
constexpr int kMaxQuantTables = 4;
constexpr int kMaxHuffmanTables = 4;
constexpr int kMaxHuffmanBytes = 256;

/// Parses the marker segments in order. Each parse function gets the bytes after the segment's length.
class HeaderParser
{
  public:
    HeaderParser(std::span<const std::uint8_t> file, JpegHeader& header, JpegErrorText& error)
        : file_(file), header_(header), error_(error)
    {
    }

    bool parse();

  private:
    using Segment = std::span<const std::uint8_t>;

    bool nextMarker(int& marker);
    bool nextSegment(Segment& segment);
    bool parseSegment(int marker, Segment segment);
    bool parseQuantTables(Segment segment);
    bool parseHuffmanTables(Segment segment);
    bool parseRestartInterval(Segment segment);
    bool parseAdobe(Segment segment);
    bool parseFrame(Segment segment);
    bool checkSampling();
    bool parseScan(Segment segment);
    bool truncated() { return error_.set("Unexpected end of the header\n"); }

    Segment file_;
    std::size_t position_ = 0;
    JpegHeader& header_;
    JpegErrorText& error_;
    bool frameSeen_ = false;
    bool untransformed_ = false;  ///< an Adobe segment declares that the components are not YCbCr
};

bool HeaderParser::parse()
{
    if (file_.size() < 2 || file_[0] != 0xFF || file_[1] != 0xD8) return error_.set("Not a JPG file ?\n");
    position_ = 2;
    for (;;) {
        int marker = 0;
        if (!nextMarker(marker)) return truncated();
        if (marker == 0xD9) return truncated();
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // markers without a segment
        Segment segment;
        if (!nextSegment(segment)) return false;
        if (!parseSegment(marker, segment)) return false;
        if (marker == 0xDA) break;
    }
    header_.scanOffset = position_;
    return true;
}

// Bytes that belong to no segment are skipped, as are any number of fill bytes (0xFF).
bool HeaderParser::nextMarker(int& marker)
{
    while (position_ + 1 < file_.size()) {
        if (file_[position_] == 0xFF && file_[position_ + 1] != 0 && file_[position_ + 1] != 0xFF) {
            marker = file_[position_ + 1];
            position_ += 2;
            return true;
        }
        ++position_;
    }
    return false;
}

bool HeaderParser::nextSegment(Segment& segment)
{
    if (file_.size() - position_ < 2) return truncated();
    const std::size_t length = std::size_t(file_[position_]) << 8U | file_[position_ + 1];
    if (length < 2) return error_.set("Bad length %d of a marker segment\n", int(length));
    if (length > file_.size() - position_) return truncated();
    segment = file_.subspan(position_ + 2, length - 2);
    position_ += length;
    return true;
}

bool HeaderParser::parseSegment(int marker, Segment segment)
{
    switch (marker) {
        case 0xDB:
            return parseQuantTables(segment);
        case 0xC4:
            return parseHuffmanTables(segment);
        case 0xDD:
            return parseRestartInterval(segment);
        case 0xEE:
            return parseAdobe(segment);
        case 0xC0:  // baseline
        case 0xC1:  // extended sequential: identical to baseline for 8-bit samples
            return parseFrame(segment);
        case 0xDA:
            return parseScan(segment);
        default:
            break;
    }
    if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC8 && marker != 0xCC)
        return error_.set("Only baseline images are supported (got SOF%d)\n", marker - 0xC0);
    if (marker == 0xCC) return error_.set("Arithmetic coding is not supported\n");
    return true;  // APPn, COM and others
}

bool HeaderParser::parseQuantTables(Segment segment)
{
    while (!segment.empty()) {
        const int index = segment[0] & 15U;
        if (segment[0] >> 4U != 0) return error_.set("16 bits quantization table is not supported\n");
        if (index >= kMaxQuantTables)
            return error_.set("No more 4 quantization table is supported (got %d)\n", index);
        if (segment.size() < 65) return error_.set("Bad length of a quantization table\n");
        for (std::size_t k = 0; k < 64; ++k)
            header_.quant[std::size_t(index)][kJpegNaturalOrder[k]] = segment[1 + k];
        header_.quantDefined[std::size_t(index)] = true;
        segment = segment.subspan(65);
    }
    return true;
}

bool HeaderParser::parseHuffmanTables(Segment segment)
{
    while (!segment.empty()) {
        if (segment.size() < 17) return error_.set("Bad length of a huffman table\n");
        const unsigned tableClass = segment[0] >> 4U;
        const unsigned index = segment[0] & 15U;
        const int bytes = std::accumulate(segment.begin() + 1, segment.begin() + 17, 0);
        if (index >= unsigned(kMaxHuffmanTables))
            return error_.set("No more than %d Huffman tables is supported (got %d)\n", kMaxHuffmanTables,
                              int(index));
        if (bytes > kMaxHuffmanBytes)
            return error_.set("No more than %d bytes is allowed to describe a huffman table",
                              kMaxHuffmanBytes);
        if (tableClass > 1) return error_.set("Bad huffman table\n");
        if (index > 1)
            return tableClass == 0 ? error_.set("We do not support more than 2 DC Huffman table\n")
                                   : error_.set("We do not support more than 2 AC Huffman table\n");
        if (segment.size() < 17 + std::size_t(bytes)) return error_.set("Bad length of a huffman table\n");
        HuffmanSpec spec;
        std::copy_n(segment.begin() + 1, 16, spec.counts.begin());
        std::copy_n(segment.begin() + 17, bytes, spec.symbols.begin());
        if (!isPrefixCode(spec) || (tableClass == 0 && !hasDcSizes(spec)))
            return error_.set("Bad huffman table\n");
        (tableClass == 0 ? header_.dc : header_.ac)[index] = spec;
        segment = segment.subspan(17 + std::size_t(bytes));
    }
    return true;
}

bool HeaderParser::parseRestartInterval(Segment segment)
{
    if (segment.size() != 2) return error_.set("Length of DRI marker need to be 4\n");
    header_.restartInterval = segment[0] << 8 | segment[1];
    return true;
}

bool HeaderParser::parseAdobe(Segment segment)
{
    static constexpr std::array<std::uint8_t, 5> kAdobe = {'A', 'd', 'o', 'b', 'e'};
    if (segment.size() >= 12 && std::equal(kAdobe.begin(), kAdobe.end(), segment.begin()))
        untransformed_ = segment[11] == 0;
    return true;
}

bool HeaderParser::parseFrame(Segment segment)
{
    if (frameSeen_) return error_.set("More than one SOF marker\n");
    if (segment.size() < 6) return error_.set("Bad length of the SOF marker\n");
    if (segment[0] != 8) return error_.set("Precision other than 8 is not supported\n");
    if (segment[5] != 3) return error_.set("We only support YUV images\n");
    if (segment.size() != 6 + 3 * 3) return error_.set("Bad length of the SOF marker\n");
    header_.height = segment[1] << 8 | segment[2];
    header_.width = segment[3] << 8 | segment[4];
    for (std::size_t i = 0; i < 3; ++i) {
        JpegComponent& component = header_.components[i];
        component.id = segment[6 + 3 * i];
        component.horizontal = segment[7 + 3 * i] >> 4;
        component.vertical = segment[7 + 3 * i] & 15;
        component.quantTable = segment[8 + 3 * i];
        if (component.id != int(i) + 1) return error_.set("We only support YCbCr image\n");
        if (component.quantTable >= kMaxQuantTables)
            return error_.set("Bad Quantization table index (got %d, max allowed %d)\n", component.quantTable,
                              kMaxQuantTables - 1);
    }
    if (header_.width < 1 || header_.width > kMaxSize || header_.height < 1 || header_.height > kMaxSize)
        return error_.set("Width and Height (%dx%d) seems suspicious\n", header_.width, header_.height);
    frameSeen_ = true;
    return checkSampling();
}

bool HeaderParser::checkSampling()
{
    const auto& [y, cb, cr] = header_.components;
    if (cb.horizontal != 1 || cb.vertical != 1 || cr.horizontal != 1 || cr.vertical != 1)
        return error_.set("Sampling other than 1x1 for Cr and Cb is not supported");
    if (y.horizontal < 1)
        return error_.set(
            "Horizontal sampling factor for Y should be greater than horitontal sampling factor for Cb or "
            "Cr\n");
    if (y.vertical < 1)
        return error_.set(
            "Vertical sampling factor for Y should be greater than vertical sampling factor for Cb or Cr\n");
    if (y.horizontal > 2 || y.vertical > 2)
        return error_.set("Sampling %dx%d for Y is not supported\n", y.horizontal, y.vertical);
    // With luma sampling factor 2 an MCU covers 16 samples, and only whole MCUs are supported then.
    if (y.horizontal == 2 && header_.width % 16 != 0)
        return error_.set("Width need to be a multiple of 16 (current Width is %d)\n", header_.width);
    if (y.vertical == 2 && header_.height % 16 != 0)
        return error_.set("Height need to be a multiple of 16 (current height is %d)\n", header_.height);
    return true;
}

// The spectral selection and approximation bytes are not checked: sequential images allow only one value, but
// some cameras write others.
bool HeaderParser::parseScan(Segment segment)
{
    if (!frameSeen_) return error_.set("SOS marker before SOF marker\n");
    if (segment.empty() || segment[0] != 3 || untransformed_)
        return error_.set("We only support YCbCr image\n");
    if (segment.size() != 1 + 3 * 2 + 3) return error_.set("Bad length of the SOS marker\n");
    for (std::size_t i = 0; i < 3; ++i) {
        JpegComponent& component = header_.components[i];
        const int id = segment[1 + 2 * i];
        component.dcTable = segment[2 + 2 * i] >> 4;
        component.acTable = segment[2 + 2 * i] & 15;
        if (id != component.id)
            return error_.set("SOS cid order (%d:%d) isn't compatible with the SOF marker (%d:%d)\n", int(i),
                              id, int(i), component.id);
        if (component.dcTable > 1) return error_.set("We do not support more than 2 DC Huffman table\n");
        if (component.acTable > 1) return error_.set("We do not support more than 2 AC Huffman table\n");
        if (!header_.quantDefined[std::size_t(component.quantTable)])
            return error_.set("Quantization table %d is not defined\n", component.quantTable);
    }
    return true;
}

}  // namespace

bool parseJpegHeader(std::span<const std::uint8_t> file, JpegHeader& header, JpegErrorText& error)
{
    header = JpegHeader();
    return HeaderParser(file, header, error).parse();
}

}  // namespace scansteps::jpeg
