// `inspect --model` over the example recordings and over broken ones.

#include <nlohmann/json.hpp>

#include "scansteps/stream.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

constexpr const char* kModels = SCANSTEPS_SOURCE_DIR "/examples/models/";

TEST(InspectModel, exampleRecordings)
{
    const auto knot = runProgram(std::string("inspect --model \"") + kModels + "textured_knot.rec\"");
    EXPECT_EQ(knot.exitCode, 0);
    for (const char* part :
         {"1665 vertices: -2.774", "3024 triangles", "3024 colours: 0 to 255", "image of 160 x 64"})
        EXPECT_THAT(knot.out, HasSubstr(part));
    const auto sphere =
        runProgram(std::string("inspect --model --json \"") + kModels + "sphere_points.rec\"");
    const auto line = nlohmann::json::parse(sphere.out);
    EXPECT_EQ(line["model"]["cloud"]["points"]["count"], 2000);
    EXPECT_NEAR(line["model"]["cloud"]["points"]["max"][2].get<double>(), 0.9995, 1e-5);
    EXPECT_NEAR(line["model"]["cloud"]["colours"]["mean"][0].get<double>(), 127.5, 1e-3);
}

TEST(InspectModel, brokenModelsAreDescribedAsFarAsTheyGo)
{
    Array indices(Kind::Int, 3, 1);
    indices.elements<std::int32_t>()[1] = -1;
    indices.elements<std::int32_t>()[2] = 2;
    const varitype record{Struct{{"tria", Struct{{"Vertices", Array(Kind::Float, 3, 2)},
                                                 {"Indices", indices},
                                                 {"Views", Array(Kind::Int, 2, 2)}}},
                                 {"images", StructArray{Struct{{"handle", 4}}}}}};
    const TempDir dir;
    {
        BIOfs file(dir / "broken.rec", BIOfs::Mode::Write);
        writeRecord(file, record);
    }
    const std::string inspect = "inspect --model \"" + (dir / "broken.rec") + "\"";
    for (const char* part : {"2 vertices: 0 to 0", "image: \"by handle\"",
                             "broken: \"Views\" is an array of 2 x 2 x 1 int elements, not of a list"})
        expectAnswers({{inspect, 0, "", part}});
}

}  // namespace
}  // namespace scansteps
