// The library exports set_handles and three functions a kind, and nothing else.

#include "scansteps/steps.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

// On Windows scripts/windows.sh compares them, with the tools of the machine that builds.
#ifndef _WIN32
TEST(Exports, symbolTableOfTheLibraryIsTheTableOfKinds)
{
    const TempDir folder;
    const std::string list = (folder / "symbols");
    const std::string line =
        "nm -D --defined-only \"" SCANSTEPS_BIN_DIR "/libscansteps.so\" >\"" + list + "\"";
    ASSERT_EQ(std::system(line.c_str()), 0);
    std::set<std::string> exported, expected = {"set_handles"};
    std::istringstream symbols(readFile(list));
    for (std::string address, type, name; symbols >> address >> type >> name;) exported.insert(name);
    for (const StepInfo& step : kLibrarySteps)
        for (const char* prefix : {"create_", "getTypeIn", "getTypeOut"})
            expected.insert(prefix + std::string(step.kind));
    EXPECT_EQ(exported, expected);
}
#endif

}  // namespace
}  // namespace scansteps
