// Plug-ins beside the step library: what the program makes of good and of broken ones.
#include <gtest/gtest.h>

#include "support/process.h"

namespace scansteps {
namespace {

using test::runProgram;

#ifdef _WIN32
#define PLUGIN(name) SCANSTEPS_BIN_DIR "/test_plugins/scansteps-" name ".dll"
#else
#define PLUGIN(name) SCANSTEPS_BIN_DIR "/test_plugins/libscansteps-" name ".so"
#endif

TEST(Plugins, kindsAreUsedLikeTheLibrarysOwn)
{
    const std::string plugin = std::string(" --plugin \"") + PLUGIN("twice") + "\"";
    struct Case
    {
        const char* arguments;
        int exitCode;
        const char *err, *out = "";
    };
    const Case cases[] = {
        {"run \"twice factor=3 ! test\" --frames 1", 0, "1 frames", "twice Int = 3"},
        {"run \"twice ! test\" --set factor=4 --frames 1", 0, "1 frames", "twice Int = 4"},
        {"run \"twice factor=30\" --frames 1", 2, "twice.factor = 30 is outside 1 to 10"},
        {"run \"twice factr=3\" --frames 1", 2, "did you mean \"factor\"?"},
        {"check \"twicee\"", 2, "did you mean \"twice\"?"},
        {"check \"twice ! clast\"", 0, "", "ok: 2 steps"},
        {"steps twice", 0, "", "twice.factor"},
        {"steps", 0, "", "\ntwice "},
    };
    for (const auto& [arguments, exitCode, err, out] : cases) {
        const auto result = runProgram(arguments + plugin + plugin);
        EXPECT_EQ(result.exitCode, exitCode) << arguments << result.err;
        EXPECT_NE(result.err.find(err), std::string::npos) << arguments << result.err;
        EXPECT_NE(result.out.find(out), std::string::npos) << arguments << result.out;
    }
}

TEST(Plugins, namedFileThatIsNoneIsAnError)
{
    for (const char* file : {"no/such/file.so", SCANSTEPS_SOURCE_DIR "/README.md"}) {
        const auto result = runProgram(std::string("steps --plugin \"") + file + "\"");
        EXPECT_EQ(result.exitCode, 5);
        EXPECT_NE(result.err.find(file), std::string::npos) << result.err;
    }
}

}  // namespace
}  // namespace scansteps
