// PLY, STL and OBJ files byte by byte, refused models, and that no partial files are left.

#include "mesh/flt_writer.h"
#include "mesh/models.h"
#include "mesh/obj_writer.h"
#include "mesh/ply_writer.h"
#include "mesh/stl_writer.h"
#include "mesh/vertex_normals.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace mesh;

template <typename... Args>
std::string plyOf(const Args&... args)
{
    const TempDir dir;
    AtomicFile file(dir / "a.ply");
    writePly(file, args...);
    file.commit();
    return readFile(dir / "a.ply");
}

TEST(PlyWriter, meshByteByByte)
{
    EXPECT_EQ(plyOf(test::tetrahedron().mesh()),
              "ply\nformat ascii 1.0\ncomment scansteps 0.1.0\nelement vertex 4\n"
              "property float x\nproperty float y\nproperty float z\nelement face 4\n"
              "property list uchar int vertex_index\n"
              "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n"
              "-1.2345 0 0 \n2.9999 0 1000.06 \n0 3 0 \n1 1 4 \n"
              "3 0 2 1 255 128 0 \n3 0 1 3 0 255 0 \n3 1 2 3 0 0 254 \n3 2 0 3 10 20 30 \n");
}

TEST(PlyWriter, cloudByteByByte)
{
    const std::vector<float> points = {0.1F, -0.00009F, 214748.3F, 63.1F, -0.7F, 1},
                             colours = {1, 99.9F, 100, 4, 5, 6};
    EXPECT_EQ(plyOf(Cloud{points, colours}),
              "ply\nformat ascii 1.0\ncomment scansteps 0.1.0\nelement vertex 2\n"
              "property float x\nproperty float y\nproperty float z\n"
              "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n"
              "0.1 0 214748 1 99 100 \n63.0999 -0.6999 1 4 5 6 \n");  // floats below 63.1 and 0.7
}

TEST(Writers, emptyModels)
{
    EXPECT_THAT(plyOf(Mesh{}), HasSubstr("element vertex 0\n"));
    EXPECT_THAT(plyOf(Mesh{}), testing::EndsWith("end_header\n"));
    EXPECT_THAT(plyOf(Cloud{}), testing::EndsWith("end_header\n"));
    const TempDir dir;
    AtomicFile file(dir / "a.stl");
    const IndexRange range = writeStl(file, Mesh{});
    file.commit();
    EXPECT_EQ(range.smallest, 1000000U);
    EXPECT_EQ(range.largest, 0U);
    EXPECT_EQ(readFile(dir / "a.stl").size(), 84U);
    EXPECT_TRUE(saveObj(dir / "a.obj", {{}, {}, {16, 1}}));
    EXPECT_TRUE(saveFlt(dir / "a.flt", {{}, {}, {16, 1}}));
}

template <typename T>
T valueAt(const std::string& bytes, std::size_t at)
{
    T value;
    std::memcpy(&value, &bytes.at(at), sizeof value);
    return value;
}

TEST(StlWriter, layoutNormalsAndColourWord)
{
    // Two triangles of one plane, and a third at a right angle that shares an edge with the second.
    Model model;
    model.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 1, 0, 1};
    model.indices = {0, 1, 2, 1, 3, 2, 1, 4, 3};
    model.colours = {255, 128, 0, 0, 0, 0, 7.99F, 8, 255.9F};
    const TempDir dir;
    AtomicFile file(dir / "a.stl");
    const IndexRange range = writeStl(file, model.mesh());
    file.commit();
    EXPECT_EQ(range.largest, 4U);
    const std::string bytes = readFile(dir / "a.stl");
    ASSERT_EQ(bytes.size(), 84U + 3 * 50);
    EXPECT_STREQ(bytes.substr(0, 80).c_str(), "scansteps 0.1.0 binary STL");
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 80), 3U);
    EXPECT_EQ(valueAt<std::uint16_t>(bytes, 84 + 48), 0x8000 | (31 << 10) | (16 << 5));
    EXPECT_EQ(valueAt<std::uint16_t>(bytes, 84 + 150 - 2), 0x8000 | (1 << 5) | 31);
    EXPECT_EQ(valueAt<float>(bytes, 84 + 100 + 12 + 12 + 8), 1.0F);  // third triangle, second corner, z
    // Corners 0 and 2 have the normal of the plane (z); corner 1 lies at the crease.
    const float crease = 1 / std::sqrt(5.0F);  // two normals along z and one along -x, normalised
    EXPECT_NEAR(valueAt<float>(bytes, 84 + 8), (1 + 2 * crease + 1) / 3, 1e-6);
    EXPECT_NEAR(valueAt<float>(bytes, 84), -crease / 3, 1e-6);
}

TEST(StlWriter, vectorEqualsScalarOnEveryTarget)
{
    const Model model = test::bumpyGrid(37, 23);
    const Mesh mesh = model.mesh();
    std::vector<Normal> expected(mesh.vertexCount());
    mesh::scalar::vertexNormals(mesh, expected);
    std::string bytes(mesh.triangleCount() * kStlEntrySize, '\0');
    ASSERT_TRUE(mesh::scalar::stlEntries(mesh, expected, 0, mesh.triangleCount(), bytes.data()));
    forEachTarget([&] {
        std::vector<Normal> normals(mesh.vertexCount());
        vertexNormals(mesh, normals);
        EXPECT_EQ(std::memcmp(normals.data(), expected.data(), normals.size() * sizeof(Normal)), 0);
        std::string out(bytes.size(), '\1');
        EXPECT_TRUE(stlEntries(mesh, normals, 0, mesh.triangleCount(), out.data()));
        EXPECT_EQ(out, bytes);
        for (const float bad : {-1.0F, 256.0F, std::nanf(""), 1e30F}) {
            Model broken = model;
            broken.colours[100] = bad;
            EXPECT_FALSE(stlEntries(broken.mesh(), normals, 0, mesh.triangleCount(), out.data())) << bad;
        }
    });
}

// Meshes in any unit, where squared lengths exceed the range of floats.
TEST(StlWriter, tinyAndHugeMeshes)
{
    for (const float scale : {1e-17F, 1e-10F, 1.0F, 1e10F, 1e18F}) {
        Model model = test::bumpyGrid(5, 4);
        std::vector<Normal> expected(model.mesh().vertexCount()), normals(expected.size());
        mesh::scalar::vertexNormals(model.mesh(), expected);
        for (float& v : model.vertices) v *= scale;
        vertexNormals(model.mesh(), normals);
        for (std::size_t i = 0; i < normals.size(); ++i)
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(normals[i].v[k], expected[i].v[k], 1e-5) << scale;
    }
}

TEST(StlWriter, trianglesWithoutAreaHaveZeroNormals)
{
    Model model;
    model.vertices = {0, 0, 0, 1, 0, 0, 2, 0, 0, 3e38F, 0, 0, 0, 3e38F, 0, 0, 0, 3e38F};
    model.indices = {0, 1, 2, 3, 4, 5};
    forEachTarget([&] {
        std::vector<Normal> normals(6);
        vertexNormals(model.mesh(), normals);
        for (const Normal& n : normals)
            for (const float v : n.v) EXPECT_EQ(v, 0);
    });
}

TEST(ObjWriter, oneTextureByteByByte)
{
    const TempDir dir;
    Model model = test::tetrahedron();
    model.pixels = {0, 0, 2047, 2047, 10.25F, 3, 5, 7};
    ASSERT_TRUE(saveObj(dir / "scan.obj", {model.mesh(), {}, {2048, 1}}));
    EXPECT_EQ(readFile(dir / "scan.obj"),
              "# scansteps 0.1.0\nmtllib scan.mtl\n# list of vertices\n"
              "v -1.23456 0 0\nvt 0.000244141 0.999756 0\nv 2.99999 0 1000.06\nvt 0.999756 0.000244141 0\n"
              "v 0 3 0\nvt 0.00524902 0.998291 0\nv 1 1 4\nvt 0.00268555 0.996338 0\n"
              "# list of faces\ng Texture_0\nusemtl Texture_0\n"
              "f 1/1 3/3 2/2 \nf 1/1 2/2 4/4 \nf 2/2 3/3 4/4 \nf 3/3 1/1 4/4 \n");
    EXPECT_EQ(readFile(dir / "scan.mtl"),
              "newmtl Texture_0\nKa 1.0 1.0 1.0\nKd 1.0 1.0 1.0\nKs 0.0 0.0 0.0\nd 1\nNs 1.0\nillum 1\n"
              "map_Kd scan.jpg\n");
    EXPECT_TRUE(std::filesystem::exists(dir / "scan.jpg"));
}

struct Refusal
{
    std::function<void(Model&, TextureSettings&)> breakIt;
    const char* text;
};

const Refusal kBrokenMeshes[] = {
    {[](Model& m, auto&) { m.indices[7] = 4; },
     "\"Indices\": entry 2 holds 4, outside the 4 entries of \"Vertices\""},
    {[](Model& m, auto&) { m.indices[0] = 0xFFFFFFFF; }, "\"Indices\": entry 0 holds -1, outside"},
    {[](Model& m, auto&) { m.vertices.clear(); }, "outside the 0 entries"},
    {[](Model& m, auto&) { m.vertices[5] = std::nanf(""); }, "\"Vertices\": entry 1 is not finite"},
    {[](Model& m, auto&) { m.vertices[11] = -HUGE_VALF; }, "\"Vertices\": entry 3 is not finite"},
    {[](Model& m, auto&) { m.vertices.pop_back(); }, "\"Vertices\" has 11 values"},
    {[](Model& m, auto&) { m.indices.pop_back(); }, "\"Indices\" has 11 values"},
    {[](Model& m, auto&) { m.colours.resize(9); }, "\"Tricolors\" has 3 entries for 4 triangles"},
    {[](Model& m, auto&) { m.colours[11] = 256; }, "\"Tricolors\": entry 3 lies outside 0..255"},
    {[](Model& m, auto&) { m.colours[3] = -1; }, "\"Tricolors\": entry 1 lies outside 0..255"},
    {[](Model& m, auto&) { m.colours[3] = std::nanf(""); }, "\"Tricolors\": entry 1 lies outside 0..255"},
};

const Refusal kBrokenTextures[] = {
    {[](Model& m, auto&) { m.pixels.pop_back(); }, "\"Pixels\" has 39 values for 20 vertices"},
    {[](Model& m, auto&) { m.pixels[7] = 62; }, "\"Pixels\": entry 3"},
    {[](Model& m, auto&) { m.pixels[6] = std::nanf(""); }, "lies outside its image of 90 x 60"},
    {[](Model& m, auto&) { m.views[2] = 4; }, "\"Views\": entry 2 is 4, but there are 4 images"},
    {[](Model& m, auto&) { m.views[2] = -1; }, "\"Views\": entry 2 is -1"},
    {[](Model& m, auto&) { m.views.pop_back(); }, "\"Views\" has 19 values for 20 vertices"},
    {[](Model& m, auto&) { m.views[1] = (m.views[1] + 1) % 4; },
     "triangle 0 joins vertices of different images"},
    {[](Model&, TextureSettings& s) { s.width = 8; }, "too narrow"},
};

void save(const std::string& path, const TexturedModel& model)
{
    if (path.ends_with(".flt")) return void(saveFlt(path, model));
    if (path.ends_with(".obj")) return void(saveObj(path, model));
    AtomicFile file(path);
    if (path.ends_with(".ply"))
        writePly(file, model.mesh);
    else
        writeStl(file, model.mesh);
    file.commit();
}

void expectRefused(std::span<const Refusal> refusals, const Model& good,
                   std::span<const PictureView> pictures, std::initializer_list<const char*> names)
{
    for (const Refusal& refusal : refusals)
        for (const char* name : names) {
            const TempDir dir;
            dir.write(name, "before");
            Model model = good;
            TextureSettings settings{128, 1};
            refusal.breakIt(model, settings);
            EXPECT_THAT(thrownText([&] {
                            save(dir / name, {model.mesh(), pictures, settings});
                        }),
                        HasSubstr(refusal.text))
                << name;
            EXPECT_EQ(readFile(dir / name), "before");
            EXPECT_THAT(dir.names(), ElementsAre(name));
        }
}

TEST(Writers, brokenModelsAreRefusedAndLeaveNothingBehind)
{
    expectRefused(kBrokenMeshes, test::tetrahedron(), {}, {"a.ply", "a.stl", "a.flt"});
    expectRefused(kBrokenTextures, patches(5, 4, 90, 60, 1), views(colouredPictures()), {"a.obj", "a.flt"});
}

TEST(PlyWriter, coordinatesBeyondThirtyTwoBits)
{
    Model model = test::tetrahedron();
    for (const float large : {214748.4F, -214748.4F, 1e30F}) {
        model.vertices[4] = large;
        EXPECT_THAT(thrownText([&] { plyOf(model.mesh()); }), HasSubstr("too large for PLY"));
    }
}

TEST(AtomicFile, filesOfOneNameDoNotMix)
{
    const TempDir dir;
    AtomicFile first(dir / "a.ply"), second(dir / "a.ply");
    first.write("first");
    second.write("second");
    second.commit();
    EXPECT_EQ(readFile(dir / "a.ply"), "second");
    first.commit();
    EXPECT_EQ(readFile(dir / "a.ply"), "first");
    EXPECT_THAT(dir.names(), testing::ElementsAre("a.ply"));
}

TEST(AtomicFile, committedTogetherOrNotAtAll)
{
    const TempDir dir;
    dir.write("old.mtl", "old");
    {
        AtomicFile old(dir / "old.mtl"), fresh(dir / "new.jpg"), refused(dir / "a.obj"), last(dir / "b.obj");
        for (AtomicFile* file : {&old, &fresh, &refused, &last}) file->write("new");
        std::filesystem::create_directory(dir / "a.obj");  // which a file cannot replace
        AtomicFile* const files[] = {&old, &fresh, &refused, &last};
        EXPECT_THAT(thrownText([&] { AtomicFile::commitTogether(files); }),
                    HasSubstr("a.obj\": " + refused.reason()));
        EXPECT_NE(refused.reason(), "");
    }
    EXPECT_EQ(readFile(dir / "old.mtl"), "old");
    EXPECT_THAT(dir.names(), testing::ElementsAre("a.obj", "old.mtl"));
}

TEST(AtomicFile, unopenedLinkedAndSpecialTargets)
{
    const TempDir dir;
    EXPECT_FALSE(AtomicFile(dir / "missing/a.ply").isOpen());
    EXPECT_FALSE(saveObj(dir / "missing/a.obj", {test::tetrahedron().mesh(), {}, {16, 1}}));
    std::filesystem::create_directory(dir / "folder.ply");
    EXPECT_FALSE(AtomicFile(dir / "folder.ply").isOpen());
#ifndef _WIN32  // whose paths are short, whose files are no devices, and which lets few users make links
    const std::string longName(253, 'n');  // too long for a longer temporary name
    AtomicFile named(dir / longName.c_str());
    named.write("here");
    named.commit();
    EXPECT_EQ(readFile(dir / longName.c_str()), "here");
    const std::string real = dir.write("real.ply", "old");
    std::filesystem::create_symlink("real.ply", dir / "link.ply");
    AtomicFile linked(dir / "link.ply");
    linked.write("new");
    linked.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.ply"));
    EXPECT_EQ(readFile(real), "new");
    std::filesystem::create_symlink("fresh.ply", dir / "dangling.ply");
    AtomicFile(dir / "dangling.ply").commit();
    EXPECT_TRUE(std::filesystem::exists(dir / "fresh.ply"));
    AtomicFile device("/dev/null");
    device.write("gone");
    device.commit();
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    AtomicFile full("/dev/full");
    full.write("no room");
    EXPECT_THAT(thrownText([&] { full.commit(); }), HasSubstr("cannot write \"/dev/full\""));
#endif
}

}  // namespace
}  // namespace scansteps
