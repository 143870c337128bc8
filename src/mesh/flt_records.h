// Records of OpenFlight files, revision 16.0, according to the published format description: each record
// consists of an opcode, its length and big-endian fields.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace scansteps::mesh::flt {

/// Opcodes and sizes in bytes of the records written here.
namespace opcode {
inline constexpr std::uint16_t kHeader = 1, kGroup = 2, kObject = 4, kFace = 5, kPush = 10, kPop = 11,
                               kColourPalette = 32, kTexturePalette = 64, kVertexPalette = 67,
                               kVertexColour = 68, kVertexColourUv = 71, kVertexList = 72;
}
inline constexpr std::uint16_t kHeaderSize = 324, kGroupSize = 44, kObjectSize = 28, kFaceSize = 80,
                               kLevelSize = 4, kColourPaletteSize = 4228, kTexturePaletteSize = 216,
                               kVertexPaletteSize = 8, kVertexColourSize = 40, kVertexColourUvSize = 48,
                               kVertexListSize = 16;

inline constexpr std::int32_t kRevision = 1600;

/// A packed colour: alpha, blue, green, red from the highest byte to the lowest.
constexpr std::uint32_t packColour(std::uint32_t red, std::uint32_t green, std::uint32_t blue)
{
    return 0xFF000000U | blue << 16 | green << 8 | red;
}
inline constexpr std::uint32_t kWhite = packColour(255, 255, 255);

/// Writes consecutive fields to a buffer, which must be large enough.
class Fields
{
  public:
    explicit Fields(char* out) : out_(out) {}
    Fields(char* out, std::uint16_t opcode, std::uint16_t length) : out_(out) { u16(opcode).u16(length); }

    Fields& u8(std::uint8_t v)
    {
        *out_++ = static_cast<char>(v);
        return *this;
    }
    Fields& u16(std::uint16_t v) { return put(static_cast<std::uint16_t>(v << 8 | v >> 8)); }
    Fields& i16(std::int16_t v) { return u16(static_cast<std::uint16_t>(v)); }
    Fields& u32(std::uint32_t v) { return put(swap(v)); }
    Fields& i32(std::int32_t v) { return u32(static_cast<std::uint32_t>(v)); }
    Fields& f32(float v) { return u32(std::bit_cast<std::uint32_t>(v)); }
    Fields& f64(double v)
    {
        const auto bits = std::bit_cast<std::uint64_t>(v);
        return u32(static_cast<std::uint32_t>(bits >> 32)).u32(static_cast<std::uint32_t>(bits));
    }
    /// Writes zero bytes.
    Fields& skip(std::size_t count)
    {
        std::memset(out_, 0, count);
        out_ += count;
        return *this;
    }
    /// Writes text into a field of `size` bytes, truncated if necessary so that it ends with a zero.
    Fields& text(std::string_view text, std::size_t size)
    {
        const std::size_t length = text.size() < size ? text.size() : size - 1;
        std::memcpy(out_, text.data(), length);
        out_ += length;
        return skip(size - length);
    }
    char* end() const { return out_; }

  private:
    static_assert(std::endian::native == std::endian::little);
    static constexpr std::uint32_t swap(std::uint32_t v)
    {
        return v << 24 | (v & 0xFF00) << 8 | (v >> 8 & 0xFF00) | v >> 24;
    }
    template <class T>
    Fields& put(T v)
    {
        std::memcpy(out_, &v, sizeof v);
        out_ += sizeof v;
        return *this;
    }

    char* out_;
};

}  // namespace scansteps::mesh::flt
