// Whole pipelines over real photographs, as a user runs them.

#include "images/image_file.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;

const std::string kImages = SCANSTEPS_SOURCE_DIR "/examples/images/";

TEST(PhotographsToEdges, everyFrameIsWrittenAndThinWhiteLinesStandOnBlack)
{
    const TempDir folder;
    const auto result = runProgram("run \"cjread load.name=" + kImages +
                                   "img0000.jpg ! cyuv ! ccanny trl=200 trh=500 ! "
                                   "cjwrite name=" +
                                   (folder / "edge0000.ppm") +
                                   " ! cjwrite name=" + (folder / "copy0000.ppm") + " ! clast\" --frames 3");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("3 frames in"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("  CpuCanny time = "), std::string::npos);
    for (const char* name : {"edge0000.ppm", "edge0001.ppm", "edge0002.ppm"}) {
        const auto image = loadImage((folder / name));
        ASSERT_TRUE(image) << name;
        EXPECT_EQ(image->width, 640);
        std::size_t white = 0, black = 0;
        for (const std::uint8_t byte : image->bytes())
            (byte > 200 ? white : black) += byte > 200 || byte < 16;
        EXPECT_EQ(white + black, image->size());
        EXPECT_GT(white, image->size() / 200);
        EXPECT_LT(white, image->size() / 4);
    }
    EXPECT_TRUE(readFile(folder / "copy0002.ppm") == readFile(folder / "edge0002.ppm"));
    EXPECT_FALSE(std::filesystem::exists((folder / "edge0003.ppm")));
}

TEST(Examples, everyPipelineFits)
{
    for (const auto& entry : std::filesystem::directory_iterator(SCANSTEPS_SOURCE_DIR "/examples")) {
        if (entry.path().extension() != ".json") continue;
        const auto result = runProgram("check \"" + entry.path().string() + "\"");
        EXPECT_EQ(result.exitCode, 0) << entry.path() << result.out;
        EXPECT_EQ(result.out.find(" gives "), std::string::npos) << entry.path() << result.out;
    }
}

// Troubles that are no errors: a warning at the end; with --strict an error and an exit code.
TEST(Troubles, areSummedUpAtTheEndOfTheRun)
{
    const TempDir folder;
    const std::string photograph = readFile(pathOf(kImages + "img0000.jpg"));
    folder.write("a0.jpg", photograph);
    folder.write("a1.jpg", "no picture");
    folder.write("b0.jpg", photograph.substr(0, photograph.size() / 2));
    const std::string read = "cjread load.one=1 load.name=" + folder / "a0.jpg";
    const std::tuple<std::string, std::string, int> cases[] = {
        {"cjread load.name=" + folder / "x0.jpg", "stopped at " + (folder / "x0.jpg") + ": No such file", 5},
        {"cjread load.name=" + folder / "a0.jpg", "stopped at " + (folder / "a1.jpg") + ": ", 5},
        {"cjreadf load.name=" + folder / "b0.jpg",
         "1 frame decoded only in part, the first: " + folder / "b0.jpg", 5},
        {read + " ! cjwrite name=" + folder / "no/c0.jpg",
         "0 of 1 pictures written: 1 failure, the first: " + (folder / "no/c0.jpg") + ": No such file", 5},
        {read + " ! sender host=127.0.0.1 port=1", "3 records not sent: 127.0.0.1:1: ", 5},
        {read + " ! cply name=" + folder / "d.ply",
         "no mesh and no point cloud arrived: " + (folder / "d.ply") + " was not written", 4},
    };
    for (const auto& [pipeline, text, code] : cases) {
        const std::string line = "run \"" + pipeline + " ! clast\" --report -";
        expectAnswers({{line, 0, "): " + text, "\"message\": \"" + text}, {line + " --strict", code, ""}});
    }
}

TEST(PhotographsToEdges, anErrorNamesStepFrameAndMessageAndTheChainIsFlushed)
{
    expectAnswers(
        {{"run \"cjread load.name=" + kImages + "img0000.jpg ! cyuv ! ccanny order=4 ! clast\"", 4,
          "scansteps: error: step 3 (ccanny), frame 1: aperture_size wrong\n", "   CpuLast time = "}});
}

}  // namespace
}  // namespace scansteps
