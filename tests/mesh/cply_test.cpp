// Step cply in a chain: records of every accepted form, refused ones, and what the host is told.

#include "images/image_file.h"
#include "mesh/model_format.h"
#include "mesh/models.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;
using namespace mesh;

template <class T>
Array arrayOf(Kind kind, const std::vector<T>& values, std::vector<std::uint32_t> dims)
{
    Array array(kind, dims[0], dims[1], dims[2]);
    EXPECT_EQ(array.byteSize(), values.size() * sizeof(T));
    if (!values.empty()) std::memcpy(array.data(), values.data(), array.byteSize());
    return array;
}

/// The entries of a mesh; `flat` chooses among the shapes that triples may have.
Struct recordOf(const test::Model& model, int flat = 0)
{
    const auto shape = [&](std::size_t values, std::uint32_t width) -> std::vector<std::uint32_t> {
        const auto count = static_cast<std::uint32_t>(values) / width;
        if (flat == 0) return {width, count, 1};
        return flat == 1 ? std::vector<std::uint32_t>{count, width, 1}
                         : std::vector<std::uint32_t>{count * width, 1, 1};
    };
    Struct tria{{"Vertices", arrayOf(Kind::Float, model.vertices, shape(model.vertices.size(), 3))},
                {"Indices",
                 arrayOf(flat == 1 ? Kind::Int : Kind::Uint, model.indices, shape(model.indices.size(), 3))},
                {"Tricolors", arrayOf(Kind::Float, model.colours, shape(model.colours.size(), 3))}};
    if (!model.pixels.empty())
        tria.insert("Pixels", arrayOf(Kind::Float, model.pixels, shape(model.pixels.size(), 2)));
    if (!model.views.empty())
        tria.insert("Views",
                    arrayOf(Kind::Int, model.views, {static_cast<std::uint32_t>(model.views.size()), 1, 1}));
    return {{"tria", tria}};
}

Struct cloudRecord()
{
    return {{"pns", Struct{{"Points", arrayOf<float>(Kind::Float, {1, 2, 3}, {3, 1, 1})},
                           {"Colors", arrayOf<float>(Kind::Float, {4, 5, 6}, {3, 1, 1})}}}};
}

struct CpuPlyTest : testing::Test
{
    TempDir dir;
    Chain chain{{"cply"}};

    void init(const std::string& name, int width = 64)
    {
        chain.init({{"export", Struct{{"name", name.empty() ? name : dir / name}}},
                    {"export_obj", Struct{{"image_width", width}}}});
    }
};

TEST(ModelFormat, isChosenByTheLastHit)
{
    using Format = ModelFormat;
    const std::pair<const char*, Format> cases[] = {
        {"a.ply", Format::Ply},         {"a.PLY", Format::Ply},
        {"a.Ply", Format::None},        {"a.ply.obj", Format::Obj},
        {"a.obj.ply", Format::Obj},     {"a.flt.ply", Format::Flt},
        {"dir.stl/a.OBJ", Format::Stl}, {"a.FLT", Format::Flt},
        {"model", Format::None},        {"a.obj.flt.stl.ply", Format::Stl}};
    for (const auto& [name, format] : cases) EXPECT_EQ(modelFormat(name), format) << name;
}

TEST_F(CpuPlyTest, everyShapeOfTriplesGivesTheSameFiles)
{
    std::map<std::string, std::string> first;
    for (const int flat : {0, 1, 2})
        for (const char* name : {"a.ply", "a.obj", "a.stl", "a.flt"}) {
            init(name);
            printed([&] { chain.process(nullptr, recordOf(test::tetrahedron(), flat)); });
            const std::string bytes = readFile(dir / name);
            EXPECT_FALSE(bytes.empty());
            EXPECT_EQ(first.try_emplace(name, bytes).first->second, bytes) << name << " " << flat;
        }
    EXPECT_THAT(dir.names(), testing::ElementsAre("a.flt", "a.jpg", "a.mtl", "a.obj", "a.ply", "a.stl"));
}

TEST_F(CpuPlyTest, eventPassesOnWithItsModel)
{
    init("a.stl");
    EXPECT_EQ(printed([&] { chain.process(nullptr, recordOf(test::tetrahedron())); }),
              "             50 sizeof(STLEntry)\n              3 imax\n              0 imin\n");
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_EQ(chain.arrived[1].eventType, 1002);
    EXPECT_TRUE(chain.arrived[1].record["tria"].has("Vertices"));
    EXPECT_FALSE(chain.arrived[1].record.has("handle"));
}

// Clouds are written as PLY only; a mesh takes precedence over a cloud.
TEST_F(CpuPlyTest, filesAndWhatTheHostIsTold)
{
    const Struct mesh = recordOf(test::tetrahedron()), cloud = cloudRecord();
    Struct both = mesh;
    both.insert("pns", cloudRecord()["pns"]);
    const auto none = Trouble::NoModel, unwritten = Trouble::ModelNotWritten;
    const struct
    {
        const char* name;
        Struct entries;
        std::optional<Trouble> told;
    } cases[] = {
        {"a.ply", {}, none},
        {"a.ply", cloud, {}},
        {"b.ply", both, {}},
        {"c.obj", cloud, unwritten},
        {"c.stl", cloud, unwritten},
        {"c.flt", cloud, unwritten},
        {"c.xyz", cloud, unwritten},
        {"c.txt", mesh, {}},
        {"missing/a.ply", mesh, unwritten},
        {"missing/a.obj", mesh, unwritten},
        {"missing/a.flt", mesh, unwritten},
        {"missing/a.stl", mesh, unwritten},
        {"a.ply", {}, none},  // regardless of earlier runs
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        init(c.name);
        chain.notices.clear();
        printed([&] { chain.process(nullptr, c.entries), chain.flush(); });
        ASSERT_EQ(chain.notices.size(), c.told ? 1U : 0U);
        if (!c.told) continue;
        EXPECT_EQ(chain.notices[0].trouble, *c.told);
        EXPECT_EQ(chain.notices[0].file, dir / c.name);
        EXPECT_EQ(chain.notices[0].reason.empty(), c.told == none);
    }
    EXPECT_THAT(dir.names(), ElementsAre("a.ply", "b.ply"));
    EXPECT_THAT(readFile(dir / "a.ply"), testing::EndsWith("end_header\n1 2 3 4 5 6 \n"));
    EXPECT_THAT(readFile(dir / "b.ply"), testing::EndsWith("3 2 0 3 10 20 30 \n"));
}

TEST_F(CpuPlyTest, emptyNameIsOutPly)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(dir / "x").parent_path());
    init("");
    chain.process(nullptr, cloudRecord());
    std::filesystem::current_path(before);
    EXPECT_THAT(dir.names(), testing::ElementsAre("out.ply"));
}

TEST_F(CpuPlyTest, picturesAsBytesAndByHandle)
{
    const test::Plain red(90, 60, 255, 0, 0), blue(90, 60, 0, 0, 255);
    test::Model model = test::bumpyGrid(3, 2);
    model.pixels = {1, 1, 20, 1, 40, 1, 1, 30, 20, 30, 40, 30};
    model.views = {0, 0, 1, 1};
    Struct record = recordOf(model);
    const Array bytes = arrayOf(Kind::Uchar, red.rgb, {270, 60, 1});
    const auto held = createTexture(format::kU1x8, 0, 0);
    pixelsOf(int(held->handle)) = arrayOf(Kind::Uchar, blue.rgb, {270, 60, 1});
    record.insert("images", StructArray{Struct{{"data", bytes}}, Struct{{"handle", int(held->handle)}}});
    init("a.obj");
    printed([&] { chain.process(nullptr, record); });
    const auto page = loadImage(dir / "a.jpg");
    ASSERT_TRUE(page);
    std::size_t reds = 0, blues = 0;
    for (std::size_t i = 0; i < page->size(); i += 3) {
        reds += page->bytes()[i] > 240 && page->bytes()[i + 2] < 15;
        blues += page->bytes()[i + 2] > 240 && page->bytes()[i] < 15;
    }
    EXPECT_GT(reds, 600U);  // two parts of 20 x 30 pixels and their borders
    EXPECT_GT(blues, 600U);
}

// With four vertices and four triangles only the shape of "Views" tells which of them it refers to.
TEST_F(CpuPlyTest, shapeOfViewsTellsWhatTheyAreFor)
{
    test::Model model = test::tetrahedron();
    model.pixels.assign(8, 1.0F);
    model.views = {0, 1, 1, 1};
    Struct record = recordOf(model);
    const Struct picture{{"data", Array(Kind::Uchar, 9, 3)}};
    record.insert("images", StructArray{picture, picture});
    init("a.obj");
    EXPECT_EQ(thrownText([&] { printed([&] { chain.process(nullptr, record); }); }), "");
    record["tria"].set("Views", arrayOf(Kind::Int, model.views, {1, 4, 1}));
    EXPECT_THAT(thrownText([&] { chain.process(nullptr, record); }), HasSubstr("joins vertices"));
}

struct Refusal
{
    const char* entry;
    varitype value;
    const char* text;
};

TEST_F(CpuPlyTest, otherShapesAndKindsAreRefused)
{
    const Refusal refusals[] = {
        {"Vertices", Array(Kind::Float, 4, 4),
         "\"Vertices\" is an array of 4 x 4 x 1 float elements, not of triples"},
        {"Vertices", Array(Kind::Float, 3, 4, 2), "not of triples"},
        {"Vertices", Array(Kind::Float, 1, 12), "not of triples"},
        {"Vertices", Array(Kind::Double, 3, 4),
         "\"Vertices\" is an array of 3 x 4 x 1 double elements, not of kind float"},
        {"Indices", Array(Kind::Short, 3, 4), "not of kind int or unsigned int"},
        {"Indices", Array(Kind::Int, 13, 1), "not of triples"},
        {"Pixels", Array(Kind::Float, 3, 4),
         "\"Pixels\" is an array of 3 x 4 x 1 float elements, not of pairs"},
        {"Views", Array(Kind::Float, 4, 1), "not of kind int"},
        {"Views", Array(Kind::Int, 2, 2), "not of a list"},
        {"Tricolors", 7, "varitype::getv() type error!"},
    };
    init("a.obj");
    for (const Refusal& refusal : refusals) {
        varitype record = recordOf(test::tetrahedron());
        record["tria"].set(refusal.entry, refusal.value);
        EXPECT_THAT(thrownText([&] { chain.process(nullptr, record.as<Struct>()); }),
                    HasSubstr(refusal.text));
    }
    varitype record = recordOf(test::tetrahedron());
    record.set("images", StructArray{Struct{{"data", Array(Kind::Uchar, 4, 4)}}});
    EXPECT_THAT(thrownText([&] { chain.process(nullptr, record.as<Struct>()); }),
                StartsWith("\"images\": element 0 is an array"));
    record.set("images", StructArray{Struct{{"daten", 1}}});
    EXPECT_THAT(thrownText([&] { chain.process(nullptr, record.as<Struct>()); }), HasSubstr("neither"));
    record["tria"].remove("Tricolors");
    record.remove("images");
    printed([&] { chain.process(nullptr, record.as<Struct>()); });  // OBJ files store no colours
    init("b.ply");
    EXPECT_EQ(thrownText([&] { chain.process(nullptr, record.as<Struct>()); }), "[Tricolors] not found");
    EXPECT_THAT(dir.names(), testing::ElementsAre("a.jpg", "a.mtl", "a.obj"));
}

TEST_F(CpuPlyTest, imageWidthCountsWherePagesAreMade)
{
    const varitype record = recordOf(test::tetrahedron());
    for (const int width : {0, -5, 65501}) {
        init("a.ply", width);
        printed([&] { chain.process(nullptr, record.as<Struct>()); });
        init("a.obj", width);
        EXPECT_THAT(thrownText([&] { chain.process(nullptr, record.as<Struct>()); }),
                    HasSubstr("image_width"));
    }
}

}  // namespace
}  // namespace scansteps
