// OpenFlight files, parsed record by record.

#include "mesh/flt_writer.h"
#include "mesh/models.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace mesh;

/// Walks the records of a file; fields are read at their offsets, big-endian.
class Records
{
  public:
    explicit Records(std::string bytes) : bytes_(std::move(bytes)) {}
    bool more() const { return at_ < bytes_.size(); }
    void next() { at_ += length(); }
    std::uint64_t u(std::size_t offset, int size) const
    {
        std::uint64_t value = 0;
        for (int i = 0; i < size; ++i)
            value = value << 8 |
                    static_cast<unsigned char>(bytes_.at(at_ + offset + static_cast<std::size_t>(i)));
        return value;
    }
    int opcode() const { return static_cast<int>(u(0, 2)); }
    std::size_t length() const { return static_cast<std::size_t>(u(2, 2)); }
    double f64(std::size_t offset) const { return std::bit_cast<double>(u(offset, 8)); }
    float f32(std::size_t offset) const
    {
        return std::bit_cast<float>(static_cast<std::uint32_t>(u(offset, 4)));
    }
    std::string text(std::size_t offset) const { return bytes_.c_str() + at_ + offset; }
    std::size_t at() const { return at_; }
    void jump(std::size_t at) { at_ = at; }

  private:
    std::string bytes_;
    std::size_t at_ = 0;
};

TEST(FltWriter, treePaletteAndFaces)
{
    const TempDir dir;
    const test::Model model = test::tetrahedron();
    ASSERT_TRUE(saveFlt(dir / "a.flt", {model.mesh(), {}, {16, 1}}));
    Records r(readFile(dir / "a.flt"));
    EXPECT_EQ(r.opcode(), 1);
    EXPECT_EQ(r.length(), 324U);
    EXPECT_EQ(r.u(12, 4), 1600U);  // format revision
    EXPECT_EQ(r.u(60, 2), 1U);     // unit multiplier
    EXPECT_EQ(r.u(126, 2), 1U);    // double precision
    EXPECT_EQ(r.u(128, 4), 100U);  // origin
    std::string sequence;
    std::size_t palette = 0;
    int depth = 0, faces = 0;
    for (; r.more(); r.next()) {
        ASSERT_GE(r.length(), 4U);
        sequence += std::to_string(r.opcode()) + " ";
        depth += r.opcode() == 10 ? 1 : r.opcode() == 11 ? -1 : 0;
        if (r.opcode() == 67) {
            palette = r.at();
            EXPECT_EQ(r.u(4, 4), 8U + 4 * 40);
        }
        if (r.opcode() == 5) {
            const auto component = [&](int i) {
                return static_cast<std::uint64_t>(model.colours[static_cast<std::size_t>(3 * faces + i)]);
            };
            EXPECT_EQ(r.u(56, 4), 0xFF000000U | component(2) << 16 | component(1) << 8 | component(0));
            EXPECT_EQ(r.u(44, 4), 0x10000000U);  // packed colour
            EXPECT_EQ(r.u(28, 2), 0xFFFFU);      // no texture
        }
        if (r.opcode() != 72) continue;
        ASSERT_EQ(r.length(), 16U);
        const std::size_t here = r.at();
        for (std::size_t c = 0; c < 3; ++c) {
            r.jump(here);
            r.jump(palette + r.u(4 + 4 * c, 4));
            EXPECT_EQ(r.opcode(), 68);
            const std::size_t vertex = model.indices[static_cast<std::size_t>(3 * faces) + c];
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_EQ(r.f64(8 + 8 * i), static_cast<double>(model.vertices[3 * vertex + i]));
        }
        r.jump(here);
        ++faces;
    }
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(faces, 4);
    EXPECT_EQ(sequence,
              "1 32 67 68 68 68 68 10 2 10 4 10 5 10 72 11 5 10 72 11 5 10 72 11 5 10 72 11 11 11 11 ");
}

TEST(FltWriter, picturesGiveTexturesAndCoordinates)
{
    const TempDir dir;
    test::Model model = test::tetrahedron();
    model.pixels = {0, 0, 15, 0, 0, 15, 7, 7};
    const test::Plain picture(16, 16, 9, 9, 9);
    const std::vector<PictureView> pictures = {picture.view()};
    ASSERT_TRUE(saveFlt(dir / "a.flt", {model.mesh(), pictures, {16, 1}}));
    int vertices = 0, faces = 0, textures = 0;
    for (Records r(readFile(dir / "a.flt")); r.more(); r.next()) {
        if (r.opcode() == 64) {
            EXPECT_EQ(r.text(4), "a.jpg");
            EXPECT_EQ(r.length(), 216U);
            ++textures;
        }
        if (r.opcode() == 71) {
            EXPECT_FLOAT_EQ(r.f32(32), (model.pixels[static_cast<std::size_t>(2 * vertices)] + 0.5F) / 16);
            EXPECT_FLOAT_EQ(r.f32(36),
                            (15.5F - model.pixels[static_cast<std::size_t>(2 * vertices + 1)]) / 16);
            ++vertices;
        }
        if (r.opcode() == 5) {
            EXPECT_EQ(r.u(28, 2), 0U);  // texture pattern
            ++faces;
        }
    }
    EXPECT_EQ(textures, 1);
    EXPECT_EQ(vertices, 4);
    EXPECT_EQ(faces, 4);
}

}  // namespace
}  // namespace scansteps
