// Several pictures: layout, page pixels, and the OBJ and OpenFlight files that refer to them.

#include "images/image_file.h"
#include "mesh/flt_writer.h"
#include "mesh/models.h"
#include "mesh/obj_writer.h"
#include "mesh/texture_page.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;
using namespace mesh;

// Pixels encode their own position: at scale 1 every page pixel inside a rectangle equals its source.
TEST(TexturePage, pixelsAreThoseOfTheSource)
{
    std::vector<Plain> pictures = colouredPictures();
    for (std::size_t p = 0; p < pictures.size(); ++p)
        for (int i = 0; i < 90 * 60; ++i) {
            std::uint8_t* rgb = &pictures[p].rgb[static_cast<std::size_t>(3 * i)];
            rgb[0] = static_cast<std::uint8_t>(i % 90);
            rgb[1] = static_cast<std::uint8_t>(i / 90);
            rgb[2] = static_cast<std::uint8_t>(p + 1);
        }
    const auto sources = views(pictures);
    const TextureLayout layout = layOutPages(patches(60, 4, 90, 60, 5).mesh(), sources, {128, 1});
    TexturePage page(128);
    copyGroups(layout, 0, sources, page);
    std::size_t filled = 0;
    for (const TextureGroup& g : layout.groups) {
        if (g.page != 0) continue;
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x, ++filled) {
                const std::uint8_t* rgb =
                    &page.rgb[static_cast<std::size_t>(3 * ((g.top + y) * 128 + g.left + x))];
                ASSERT_EQ(rgb[0], std::clamp(g.sourceLeft + x - 2, 0, 89));
                ASSERT_EQ(rgb[1], std::clamp(g.sourceTop + y - 2, 0, 59));
                ASSERT_EQ(rgb[2], g.picture + 1);
            }
    }
    std::size_t touched = 0;
    for (std::size_t i = 2; i < page.rgb.size(); i += 3) touched += page.rgb[i] != 0;
    EXPECT_EQ(touched, filled);
}

struct Face
{
    int page;
    int vertex[3], texture[3];
};

/// A parsed OBJ file.
struct ReadObj
{
    std::vector<std::string> vertices;
    std::vector<float> u, v;
    std::vector<Face> faces;

    explicit ReadObj(const std::string& path)
    {
        std::istringstream file(readFile(path));
        int page = -1;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("v ")) vertices.push_back(line.substr(2));
            if (line.starts_with("usemtl Texture_")) page = std::stoi(line.substr(15));
            float tu, tv;
            Face f{page, {}, {}};
            if (std::sscanf(line.c_str(), "vt %f %f", &tu, &tv) == 2) {
                u.push_back(tu);
                v.push_back(tv);
            }
            if (std::sscanf(line.c_str(), "f %d/%d %d/%d %d/%d ", &f.vertex[0], &f.texture[0], &f.vertex[1],
                            &f.texture[1], &f.vertex[2], &f.texture[2]) == 6)
                faces.push_back(f);
        }
    }
};

// Read back from the JPEG file, every corner and the middle of every triangle have the colour of their own
// picture, regardless of their neighbours on the page.
TEST(ObjWriter, pagesShowEachTriangleItsOwnPicture)
{
    for (const float scale : {1.0F, 0.6F, 1.7F}) {
        const TempDir dir;
        const Model model = patches(120, 4, 90, 60, 9);
        const auto pictures = views(colouredPictures());
        ASSERT_TRUE(saveObj(dir / "a.obj", {model.mesh(), pictures, {128, scale}}));
        const ReadObj obj(dir / "a.obj");
        ASSERT_EQ(obj.faces.size(), 240U);
        ASSERT_EQ(obj.vertices.size(), 480U);
        int loaded = -1;
        std::optional<RgbImage> page;
        for (const Face& face : obj.faces) {
            if (face.page != loaded) {
                EXPECT_EQ(face.page, loaded + 1) << "one block a page, in order";
                loaded = face.page;
                page = loadImage(dir / (loaded == 0 ? "a.jpg" : "a_" + std::to_string(loaded) + ".jpg"));
                ASSERT_TRUE(page && page->width == 128 && page->height == 128);
            }
            float middle[2] = {0, 0};
            for (int c = 0; c < 4; ++c) {
                const auto t = static_cast<std::size_t>(c < 3 ? face.texture[c] - 1 : 0);
                const float x = c < 3 ? obj.u[t] * 128 - 0.5F : middle[0];
                const float y = c < 3 ? 127 + 0.5F - obj.v[t] * 128 : middle[1];
                middle[0] += x / 3;
                middle[1] += y / 3;
                const auto& want = pictures[static_cast<std::size_t>(
                    model.views[static_cast<std::size_t>(face.vertex[0] - 1)])];
                for (const int dx : {0, 1}) {  // the pixels that a bilinear sample there takes
                    const int column =
                        dx == 0 ? static_cast<int>(x + 0.01F) : static_cast<int>(std::ceil(x - 0.01F));
                    const std::size_t at =
                        static_cast<std::size_t>(3 * (static_cast<int>(y + 0.5F) * 128 + column));
                    for (std::size_t i = 0; i < 3; ++i)
                        EXPECT_NEAR(page->bytes()[at + i], want.rgb[i], 6) << face.page;
                }
            }
        }
        const std::string materials = readFile(dir / "a.mtl");
        EXPECT_THAT(materials, HasSubstr("newmtl Texture_" + std::to_string(loaded)));
        EXPECT_THAT(materials, HasSubstr("map_Kd a_" + std::to_string(loaded) + ".jpg\n"));
        EXPECT_FALSE(std::filesystem::exists(dir / ("a_" + std::to_string(loaded + 1) + ".jpg")));
    }
}

// With views of triangles, a shared vertex gets further texture vertices but is written once.
TEST(ObjWriter, sharedVerticesOfTwoPictures)
{
    const TempDir dir;
    Model model = test::bumpyGrid(3, 2);
    model.views = {0, 0, 1, 1};
    model.viewsOfTriangles = true;
    for (int i = 0; i < 6; ++i)
        model.pixels.insert(model.pixels.end(),
                            {static_cast<float>(i % 3 * 20), static_cast<float>(i / 3 * 20)});
    const auto pictures = views(colouredPictures());
    const std::span<const PictureView> two(pictures.data(), 2);
    ASSERT_TRUE(saveObj(dir / "a.obj", {model.mesh(), two, {128, 1}}));
    const ReadObj obj(dir / "a.obj");
    EXPECT_EQ(obj.vertices.size(), 6U);
    EXPECT_EQ(obj.u.size(), 8U);
    for (std::size_t k = 0; k < 4; ++k)
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_EQ(obj.faces[k].vertex[c], static_cast<int>(model.indices[3 * k + c]) + 1);
}

TEST(ObjWriter, onePictureIsCopiedUnscaledAndClipped)
{
    for (const int side : {128, 64}) {
        const TempDir dir;
        Model model = test::tetrahedron();
        model.pixels.assign(8, 1.0F);
        const std::vector<PictureView> pictures = {colouredPictures()[0].view()};
        testing::internal::CaptureStdout();
        ASSERT_TRUE(saveObj(dir / "a.obj", {model.mesh(), pictures, {side, 1}}));
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(printed.find("clipped") != std::string::npos, side == 64);
        EXPECT_THAT(printed, testing::AllOf(testing::HasSubstr("time "), testing::HasSubstr("ms\n")));
        const auto page = loadImage(dir / "a.jpg");
        ASSERT_TRUE(page && page->width == side && page->height == side);
        EXPECT_NEAR(page->bytes()[0], 255, 3);
        const std::size_t below = static_cast<std::size_t>(3 * side * 62);
        EXPECT_NEAR(page->bytes()[below], 0, 3);
    }
}

TEST(TextureLayout, partsLargerThanAPageAreShrunk)
{
    Model model = patches(1, 1, 90, 60, 1);
    model.pixels = {0, 0, 89, 0, 0, 59, 89, 59};
    const auto pictures = views(colouredPictures());
    const TextureLayout layout = layOutPages(model.mesh(), pictures, {32, 1});
    EXPECT_EQ(layout.shrunk, 1);
    EXPECT_LE(layout.groups[0].width, 32);
    EXPECT_LE(*std::max_element(layout.positions.begin(), layout.positions.end()), 29.001F);
}

}  // namespace
}  // namespace scansteps
