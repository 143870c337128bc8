// The bundled series, from pictures to a mesh, through the program.
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
    EXPECT_GT(std::filesystem::file_size(model), 100000U);
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
