// Recorded models exported to files, and those files read by third-party programs.

#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

const std::string kExamples = SCANSTEPS_SOURCE_DIR "/examples/";

TEST(Models, examplePipelineWritesAllFourFormats)
{
    const TempDir folder;
    std::string pipeline = readFile(kExamples + "models.json");
    const auto replaceAll = [&](const std::string& from, const std::string& to) {
        for (std::size_t at = 0; (at = pipeline.find(from, at)) != std::string::npos; at += to.size())
            pipeline.replace(at, from.size(), to);
    };
    replaceAll("examples/", kExamples);
    replaceAll("out/", folder / "");
    const auto result = runProgram("run -", pipeline);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out,
                HasSubstr("             50 sizeof(STLEntry)\n           1664 imax\n              0 imin\n"));
    EXPECT_THAT(readFile(folder / "knot.ply"), HasSubstr("element face 3024\n"));
    EXPECT_EQ(std::filesystem::file_size(folder / "knot.stl"), 84U + 3024 * 50);
    EXPECT_THAT(readFile(folder / "knot.obj"), HasSubstr("usemtl Texture_1\n"));
    EXPECT_THAT(readFile(folder / "knot.mtl"), HasSubstr("map_Kd knot_1.jpg\n"));
    EXPECT_TRUE(std::filesystem::exists(folder / "knot_1.jpg"));
    EXPECT_TRUE(std::filesystem::exists(folder / "textured.flt"));
    EXPECT_TRUE(std::filesystem::exists(folder / "textured_1.jpg"));
}

// Not on Windows, where the files have the same bytes and the readers are not installed.
#ifndef _WIN32
// meshio, assimp and OpenSceneGraph, as far as they are installed (scripts/bootstrap.sh readers).
TEST(Models, otherReadersFindTheMeshThatWentIn)
{
    const char* python = std::filesystem::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
    const TempDir folder;
    const std::string log = folder / "log";
    const std::string line = std::string(python) +
                             " \"" SCANSTEPS_SOURCE_DIR "/scripts/check_models.py\" \"" +
                             SCANSTEPS_BIN_DIR "/scansteps\" >\"" + log + "\" 2>&1";
    const int status = std::system(line.c_str());
    const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (exitCode == 77 || exitCode == 127) GTEST_SKIP() << "no reader installed: " << readFile(log);
    EXPECT_EQ(exitCode, 0) << readFile(log);
    std::cout << readFile(log);
}
#endif

}  // namespace
}  // namespace scansteps
