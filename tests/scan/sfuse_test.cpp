// The step sfuse in the program: views of a recording, and what is wrong with them.
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
    }
}

}  // namespace
}  // namespace scansteps::scan
