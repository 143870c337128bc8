// PPM and PGM files, binary and plain (netpbm's ppm(5) and pgm(5)).
#include <algorithm>
#include <optional>
#include <vector>

#include "decode.h"

namespace scansteps::imageio {
namespace {

bool isBlank(std::uint8_t c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

class PnmReader
{
  public:
    explicit PnmReader(std::span<const std::uint8_t> file) : file_(file) {}

    /// The next number, after blanks and comments. Throws DecodeError.
    unsigned number()
    {
        while (at_ < file_.size() && (isBlank(file_[at_]) || file_[at_] == '#'))
            at_ = file_[at_] == '#' ? endOfLine() : at_ + 1;
        unsigned value = 0;
        const std::size_t begin = at_;
        for (; at_ < file_.size() && file_[at_] >= '0' && file_[at_] <= '9'; ++at_) {
            value = 10 * value + (file_[at_] - '0');
            if (value > 99'999'999) throw DecodeError("PNM file: a number is too large");
        }
        if (at_ == begin) throw DecodeError("PNM file: a number is missing");
        return value;
    }
    /// What follows the single blank after the header.
    std::span<const std::uint8_t> rest() const { return file_.subspan(std::min(file_.size(), at_ + 1)); }
    void skip(std::size_t bytes) { at_ += bytes; }

  private:
    std::size_t endOfLine() const
    {
        std::size_t at = at_;
        while (at < file_.size() && file_[at] != '\n') ++at;
        return at;
    }

    std::span<const std::uint8_t> file_;
    std::size_t at_ = 0;
};

struct Header
{
    unsigned samples = 0, width = 0, height = 0, greatest = 0;
    bool isPlain = false;

    std::size_t perRow() const { return std::size_t{samples} * width; }
    /// Grey samples of more than 8 bits are kept as they are: they are measurements, not shades.
    bool keepsSamples() const { return samples == 1 && greatest > 255; }
    /// In 0 ... 255, or 0 ... 65535 where `greatest` takes two bytes.
    unsigned scaled(unsigned sample) const
    {
        const unsigned full = greatest > 255 ? 65535 : 255;
        if (keepsSamples() || greatest == full) return sample;
        return (std::min(sample, greatest) * full + greatest / 2) / greatest;
    }
};

Header readHeader(PnmReader& reader, std::uint8_t magic)
{
    Header header;
    header.samples = magic == '3' || magic == '6' ? 3 : 1;
    header.isPlain = magic < '5';
    header.width = reader.number();
    header.height = reader.number();
    header.greatest = reader.number();
    if (header.greatest < 1 || header.greatest > 65535)
        throw DecodeError("PNM file: the largest sample value must be 1 to 65535");
    return header;
}

/// Provides rows of samples until the file ends.
class SampleRows
{
  public:
    SampleRows(PnmReader& reader, const Header& header)
        : reader_(reader), header_(header), rest_(reader.rest()), wide_(header.perRow())
    {
        if (header.greatest < 256) narrow_.resize(header.perRow());
    }
    /// Null when the file holds no further whole row.
    const void* next()
    {
        if (!header_.isPlain && header_.greatest == 255) return asTheyAre();
        for (std::size_t i = 0; i < wide_.size(); ++i) {
            const auto sample = header_.isPlain ? plain() : binary();
            if (!sample) return nullptr;
            wide_[i] = static_cast<std::uint16_t>(header_.scaled(*sample));
        }
        if (narrow_.empty()) return wide_.data();
        std::transform(wide_.begin(), wide_.end(), narrow_.begin(),
                       [](std::uint16_t v) { return static_cast<std::uint8_t>(v); });
        return narrow_.data();
    }

  private:
    const void* asTheyAre()
    {
        if (rest_.size() < header_.perRow()) return nullptr;
        const void* const row = rest_.data();
        rest_ = rest_.subspan(header_.perRow());
        return row;
    }
    std::optional<unsigned> plain()
    try {
        return std::min(reader_.number(), 65535U);
    } catch (const DecodeError&) {
        return std::nullopt;
    }
    std::optional<unsigned> binary()
    {
        const std::size_t bytes = narrow_.empty() ? 2 : 1;
        if (rest_.size() < bytes) return std::nullopt;
        const unsigned value = bytes == 1 ? rest_[0] : 256U * rest_[0] + rest_[1];
        rest_ = rest_.subspan(bytes);
        return value;
    }

    PnmReader& reader_;
    const Header& header_;
    std::span<const std::uint8_t> rest_;
    std::vector<std::uint16_t> wide_;
    std::vector<std::uint8_t> narrow_;
};

}  // namespace

Picture decodePnm(std::span<const std::uint8_t> file, Array memory)
{
    PnmReader reader(file);
    reader.skip(2);
    const Header header = readHeader(reader, file[1]);
    const RowLayout layout{static_cast<int>(header.samples), static_cast<int>(header.samples),
                           header.greatest > 255 ? 16 : 8};
    PictureRows rows(layout, header.width, header.height, file.size(), std::move(memory));
    SampleRows source(reader, header);
    constexpr const char* kShort = "PNM file: fewer samples than its header says";
    for (std::size_t y = 0; y < header.height; ++y) {
        const void* const row = source.next();
        if (row == nullptr && y == 0) throw DecodeError(kShort);
        if (row == nullptr) return rows.take(kShort);
        rows.put(y, 0, header.width, row);
    }
    return rows.take();
}

}  // namespace scansteps::imageio
