// Walks the first directory of an EXIF block (JEITA CP-3451, TIFF 6.0).
#include "exif.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace scansteps::imageio {
namespace {

/// Reads numbers of 2 and 4 bytes in the byte order of the block; nothing beyond its end.
class Reader
{
  public:
    Reader(std::span<const std::uint8_t> block, bool bigEndian) : block_(block), bigEndian_(bigEndian) {}
    std::optional<std::uint32_t> number(std::size_t at, std::size_t bytes) const
    {
        if (at > block_.size() || block_.size() - at < bytes) return std::nullopt;
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            value = value << 8U | block_[at + (bigEndian_ ? i : bytes - 1 - i)];
        return value;
    }

  private:
    std::span<const std::uint8_t> block_;
    bool bigEndian_;
};

constexpr std::uint32_t kOrientationTag = 0x0112, kShort = 3;

}  // namespace

int exifOrientation(std::span<const std::uint8_t> block)
{
    constexpr std::uint8_t kName[] = {'E', 'x', 'i', 'f', 0, 0};
    if (block.size() >= sizeof kName && std::equal(std::begin(kName), std::end(kName), block.begin()))
        block = block.subspan(sizeof kName);
    if (block.size() < 8 || block[0] != block[1] || (block[0] != 'I' && block[0] != 'M')) return 1;
    const Reader reader(block, block[0] == 'M');
    const std::size_t directory = reader.number(4, 4).value_or(0);
    const std::uint32_t entries = reader.number(directory, 2).value_or(0);
    for (std::size_t i = 0; i < entries; ++i) {
        const std::size_t entry = directory + 2 + 12 * i;
        const auto tag = reader.number(entry, 2);
        if (!tag) break;
        if (*tag != kOrientationTag) continue;
        if (reader.number(entry + 2, 2) != kShort || reader.number(entry + 4, 4) != 1U) break;
        const std::uint32_t code = reader.number(entry + 8, 2).value_or(1);
        return code >= 1 && code <= 8 ? static_cast<int>(code) : 1;
    }
    return 1;
}

}  // namespace scansteps::imageio
