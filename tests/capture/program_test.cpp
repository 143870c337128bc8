// The program with cameras: the list of cameras, and runs from a camera to picture files.

#include <nlohmann/json.hpp>

#include "images/image_file.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;

TEST(Program, listsTheCameras)
{
    const auto list = runProgram("devices");
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out.find("0  Fake Camera"), 0U) << list.out;
    const auto json = nlohmann::json::parse(runProgram("devices --json").out);
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0]["name"], "Fake Camera");
    EXPECT_GT(json[0]["modes"][0]["width"], 0);
}

TEST(Program, fromCameraToPictures)
{
    for (const std::string device : {"", "test:moving"}) {
        const TempDir folder;
        const auto run = runProgram(
            "run \"ccap1 dataX=160 dataY=120 capture.dev_name=" + (device.empty() ? "Second" : device) +
            " capture.count_max=3 ! ccanny ! cjwrite name='" + (folder / "edge0.jpg") + "'\"");
        EXPECT_EQ(run.exitCode, 0) << run.err;
        for (const char* name : {"edge0.jpg", "edge1.jpg", "edge2.jpg"}) {
            const auto picture = loadImage(folder / name);
            ASSERT_TRUE(picture) << name;
            EXPECT_EQ(picture->width, 160);
        }
    }
}

TEST(Program, aCameraThatIsNotThereIsAnError)
{
    expectAnswers({{"run \"ccap1 capture.dev_name=Third\"", 4,
                    "step 1 (ccap1), initialise: no camera \"Third\"; there are: "}});
}

}  // namespace
}  // namespace scansteps
