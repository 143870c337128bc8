// The steps sfuse and stex in the program: views of a recording, and what is wrong with them.
#include <plugins/scan/view_record.h>

#include "scan/sphere_views.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

template <class T>
Array listOf(const std::vector<T>& values, std::uint32_t width)
{
    Array array(kindOf<T>(), width, std::uint32_t(values.size() / width));
    std::ranges::copy(values, array.elements<T>().begin());
    return array;
}

varitype recordOf(const SphereView& view)
{
    return Struct{{"eventType", event::kProcess},
                  {"tria", Struct{{"Vertices", listOf(view.mesh.vertices, 3)},
                                  {"Indices", listOf(view.mesh.indices, 3)},
                                  {"Tricolors", listOf(view.mesh.colours, 3)}}},
                  {"pose", poseArray(view.pose)}};
}

ProgramResult fuse(const std::vector<varitype>& views, const TempDir& folder, const std::string& more)
{
    const std::string name = (folder.path() / "views.rec").string();
    BIOfs file(name, BIOfs::Mode::Write);
    writeRecord(file, Struct{{"eventType", event::kInit}});
    for (const varitype& view : views) writeRecord(file, view);
    writeRecord(file, Struct{{"eventType", event::kFlush}});
    file.close();
    return runProgram("run \"readd load.name=" + name + " ! sfuse sfuse.voxel=1 " + more + "\"");
}

std::vector<varitype> sixViews()
{
    std::vector<varitype> views;
    for (const Eigen::Matrix3d& turn : sixSides()) views.push_back(recordOf(sphereView(turn)));
    return views;
}

using testing::Not;

TEST(ScanSfuse, sendsOneMeshAtTheFlush)
{
    const TempDir folder;
    const std::string fused = (folder.path() / "fused.rec").string();
    const ProgramResult result = fuse(sixViews(), folder, "! filesaver save.name=" + fused);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("0 holes remain"));
    EXPECT_THAT(result.err, Not(HasSubstr("cannot read")));  // no calibration was asked for
    const std::vector<varitype> records = recordsOf(fused);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(eventType(records[1]), event::kProcess);
    EXPECT_EQ(records[1]["holes"]["open"].as<int>(), 0);
    EXPECT_EQ(records[1]["tria"]["Filled"].as<Array>().dim(0),
              records[1]["tria"]["Indices"].as<Array>().dim(1));
    EXPECT_FALSE(records[1].has("images"));  // the views had no pictures
}

TEST(ScanSfuse, saysWhatIsWrongWithAView)
{
    struct Case
    {
        std::function<void(varitype&)> change;
        const char* message;
        const char* settings = "";
    };
    const auto setMirror = [](varitype& view) { view["pose"].getv<Array>().elements<float>()[5] *= -1; };
    const Case cases[] = {
        {[](varitype& view) { view.remove("pose"); }, "view 2 has no \"pose\""},
        {[](varitype& view) { view.set("pose", Array(Kind::Float, 4, 3)); }, "\"pose\" is no 4 x 4 array"},
        {[&](varitype& view) { setMirror(view); }, "\"pose\" is no rotation and translation"},
        {[](varitype& view) { view.remove("tria"); }, "the record has no \"tria\""},
        {[](varitype& view) {
             view["tria"].getv<Struct>()["Indices"].getv<Array>().elements<std::uint32_t>()[4] = 1U << 30;
         },
         "triangle 1 names vertex 1073741824"},
        {[](varitype& view) {
             view["tria"].getv<Struct>()["Vertices"].getv<Array>().elements<float>()[3] = NAN;
         },
         "\"Vertices\": entry 1 is not finite"},
        {[](varitype&) {}, "sfuse.memory = 1 MB", "sfuse.memory=1"},
        {[](varitype&) {}, "/stage is missing",
         "sfuse.calibration=" SCANSTEPS_SOURCE_DIR "/examples/scan/structured_light/calibration.json"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const TempDir folder;
        std::vector<varitype> views = sixViews();
        c.change(views[1]);
        const ProgramResult result = fuse(views, folder, c.settings);
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_THAT(result.err, HasSubstr(c.message));
        EXPECT_THAT(result.out, Not(HasSubstr("holes remain")));  // no model of a part of the views
    }
}

// Views with grey pictures, and the file of their camera.
struct Photographed
{
    TempDir folder;
    std::string views = (folder.path() / "views.rec").string(),
                calibration = (folder.path() / "camera.json").string();

    Photographed()
    {
        BIOfs file(views, BIOfs::Mode::Write);
        writeRecord(file, Struct{{"eventType", event::kInit},
                                 {"dataX", kSide},
                                 {"dataY", kSide},
                                 {"dataFormat", "CPU::u_1x8"}});
        for (varitype view : sixViews()) {
            Array picture(Kind::Uchar, 3 * kSide, kSide);
            std::ranges::fill(picture.elements<std::uint8_t>(), std::uint8_t{150});
            view.set("data", std::move(picture));
            writeRecord(file, view);
        }
        writeRecord(file, Struct{{"eventType", event::kFlush}});
        file.close();
        writeCamera(kSide);
    }
    void writeCamera(int side) const
    {
        Calibration file;
        file.camera.size = {side, side};
        file.camera.focal = {kFocal, kFocal};
        file.camera.centre = {kSide / 2, kSide / 2};
        writeCalibration(calibration, file);
    }
    ProgramResult run(const std::string& reader) const
    {
        return runProgram("run \"" + reader + " load.name=" + views +
                          " ! sfuse sfuse.voxel=1 ! stex stex.calibration=" + calibration +
                          " ! cply export.name=" + (folder.path() / "model.obj").string() + "\"");
    }
};

TEST(ScanStex, makesATexturedModelWithoutGaps)
{
    const Photographed scene;
    const ProgramResult result = scene.run("read");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("              0 triangles without a picture\n"));
    std::ifstream obj(scene.folder.path() / "model.obj");
    std::map<std::string, int> places;
    std::vector<int> vertices;
    std::map<std::pair<int, int>, int> sides;
    int textured = 0;
    for (std::string line; std::getline(obj, line);) {
        if (line.starts_with("v "))
            vertices.push_back(places.emplace(line, int(places.size())).first->second);
        if (!line.starts_with("f ")) continue;
        std::array<int, 3> corner{}, place{};
        std::istringstream words(line.substr(2));
        for (std::size_t i = 0; i < 3; ++i) {
            char slash = 0;
            words >> corner[i] >> slash >> place[i];
            textured += slash == '/' && place[i] > 0;
        }
        for (std::size_t i = 0; i < 3; ++i) {
            const auto [a, b] = std::minmax(vertices[std::size_t(corner[i] - 1)],
                                            vertices[std::size_t(corner[(i + 1) % 3] - 1)]);
            ++sides[{a, b}];
        }
    }
    EXPECT_GT(sides.size(), 5000U);
    EXPECT_EQ(std::size_t(textured), 2 * sides.size());
    EXPECT_TRUE(std::ranges::all_of(sides, [](const auto& side) { return side.second == 2; }));
    EXPECT_GT(std::filesystem::file_size(scene.folder.path() / "model.jpg"), 10000U);
}

TEST(ScanStex, saysWhatIsMissing)
{
    const Photographed scene;
    EXPECT_THAT(scene.run("readd").err, HasSubstr("the record has no \"images\""));  // frames stay "data"
    scene.writeCamera(kSide + 1);
    EXPECT_THAT(scene.run("read").err, HasSubstr("but the camera has 161 x 161 pixels"));
}

}  // namespace
}  // namespace scansteps::scan
