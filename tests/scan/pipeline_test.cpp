// The bundled series, from pictures to a mesh, through the program.
#include <nlohmann/json.hpp>

#include "support/process.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

const std::string kSeries = SCANSTEPS_SOURCE_DIR "/examples/scan/structured_light/";

ProgramResult scan(const std::string& reader, const std::string& more = "")
{
    return runProgram("run \"imread imread.name=" + kSeries + reader + " ! sgray sgray.patterns=" + kSeries +
                      "patterns.json ! stri stri.calibration=" + kSeries +
                      "calibration.json ! smesh ! cply export.name=" + more + "\"");
}

TEST(ScanPipeline, theBundledSeriesBecomesAMesh)
{
    const TempDir folder;
    const std::string model = (folder.path() / "model.ply").string();
    const ProgramResult result = scan("img%04d.png", model);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr(" triangles\n"));
    const ProgramResult deviation =
        runCommand(SCANSTEPS_BIN_DIR "/scansteps-deviation --json " + kSeries + " " + model);
    ASSERT_EQ(deviation.exitCode, 0) << deviation.err;
    const auto values = nlohmann::json::parse(deviation.out);
    EXPECT_GT(values["measured"], 0.98 * values["measurable"].get<double>());
    const auto& inside = values["inside"];
    EXPECT_LT(inside["rms"], 1.5 * inside["expectedRms"].get<double>());
    EXPECT_LT(std::abs(inside["mean"].get<double>()), 0.01);
    EXPECT_LT(values["all"]["median"], 0.035);
}

TEST(ScanPipeline, aMissingPictureEndsTheRunWithAMessage)
{
    const TempDir folder;
    std::string list;
    for (int i = 0; i < 24; ++i)
        if (i != 6) list += kSeries + "img00" + (i < 10 ? "0" : "") + std::to_string(i) + ".png\n";
    folder.write("list.txt", list);
    const std::string name = (folder.path() / "list.txt").string();
    const ProgramResult result = runProgram("run \"imread imread.name=@" + name +
                                            " ! sgray sgray.patterns=" + kSeries + "patterns.json\"");
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("ended after 23 of 24 pictures: picture 7 (bit "));
}

}  // namespace
}  // namespace scansteps::scan
