// Plug-ins and external commands: what the program makes of good and of broken ones.
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

#ifdef _WIN32
#define PLUGIN(name) SCANSTEPS_BIN_DIR "/test_plugins/scansteps-" name ".dll"
constexpr const char *kPrefix = "", *kLibraryEnding = ".dll", *kProgramEnding = ".exe", *kPathSeparator = ";";
#else
#define PLUGIN(name) SCANSTEPS_BIN_DIR "/test_plugins/libscansteps-" name ".so"
constexpr const char *kPrefix = "lib", *kLibraryEnding = ".so", *kProgramEnding = "", *kPathSeparator = ":";
#endif
const std::string kTwice = " --plugin \"" PLUGIN("twice") "\"", kTold = " --plugin \"" PLUGIN("told") "\"";

class Variable
{
  public:
    Variable(const char* name, const std::string& value) : name_(name) { set(value); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { set(""); }

  private:
    void set(const std::string& value)
    {
#ifdef _WIN32
        _putenv_s(name_, value.c_str());
#else
        value.empty() ? ::unsetenv(name_) : ::setenv(name_, value.c_str(), 1);
#endif
    }
    const char* name_;
};

TEST(Plugins, kindsAreUsedLikeTheLibrarysOwn)
{
    const std::string twice = kTwice + kTwice;
    expectAnswers({{"run \"twice factor=3 ! test\" --frames 1" + twice, 0, "1 frames", "twice Int = 3"},
                   {"run \"twice ! test\" --set factor=4 --frames 1" + twice, 0, "1 frames", "twice Int = 4"},
                   {"run \"twice factor=30\" --frames 1" + twice, 2, "twice.factor = 30 is outside 1 to 10"},
                   {"run \"twice factr=3\" --frames 1" + twice, 2, "did you mean \"factor\"?"},
                   {"check \"twicee\"" + twice, 2, "did you mean \"twice\"?"},
                   {"check \"twice ! clast\"" + twice, 0, "", "ok: 2 steps"},
                   {"steps twice" + twice, 0, "", "twice.factor"},
                   {"steps" + twice, 0, "", "\ntwice "},
                   {"steps", 0, "", "\ntest ", "\1", "twice"}});
    const Variable list("SCANSTEPS_PLUGINS",
                        std::string(kPathSeparator) + PLUGIN("twice") + kPathSeparator + PLUGIN("twice"));
    expectAnswers({{"steps -v" + kTwice, 0, "info: plug-in twice 1.2: ", "\ntwice "}});
}

TEST(Plugins, namedOnesThatCannotBeUsedAreErrorsThatNameThem)
{
    const auto described = [](const std::string& kind, const std::string& type = "CPU::ANY", int number = 1) {
        return "{\"interface\": " + std::to_string(number) +
               ", \"plugin\": \"told\", \"steps\": [{\"kind\": \"" + kind +
               "\", \"class\": \"Told\", \"typeIn\": \"" + type +
               "\", \"typeOut\": \"CPU::ANY\", \"settings\": []}]}";
    };
    const std::pair<std::string, const char*> cases[] = {
        {described("told", "CPU::ANY", 2), "its interface number is 2, this host has 1"},
        {described("cyuv"),
         "its kind \"cyuv\" (class Told) exists already (class CpuYUV of the step library)"},
        {described("twice"),
         "its kind \"twice\" (class Told) exists already (class Twice of twice " PLUGIN("twice")},
        {described("untold"), "has no create_untold"},
        {described("told", "GPU::ANY"), "getTypeIntold returns another type"},
        {"", "scansteps_describe returns nothing"},
        {"{}", "\"interface\" is missing"},
    };
    for (const auto& [text, message] : cases) {
        const Variable told("SCANSTEPS_TOLD", text);
        expectAnswers(
            {{"steps" + kTwice + kTold, 5, message}, {"steps" + kTwice + kTold, 5, PLUGIN("told")}});
    }
    const Variable told("SCANSTEPS_TOLD", described("told"));
    expectAnswers({{"run \"told ! clast\" --frames 1" + kTold, 0, "1 frames"},
                   {"steps --plugin no_such_file.so", 5, "no_such_file.so"},
                   {"inspect x.rec --plugin \"" SCANSTEPS_SOURCE_DIR "/README.md\"", 5, "README.md"},
                   {"check clast --library no_such_file.so", 5, "no_such_file.so"}});
    const Variable list("SCANSTEPS_PLUGINS", "no_such_file.so");
    expectAnswers({{"steps", 5, "no_such_file.so"}});
}

// Nothing of it says what its texts name.
TEST(Plugins, withoutRolesGetNoTextsFromRecordings)
{
    const TempDir dir;
    const std::string file = dir / "run.rec";
    const std::string record = "run \"filesaver name='" + file + "' ! clast\" --frames 1";
    expectAnswers(
        {{record + " --set dataX=2 --set dataY=2 --set dataFormat=CPU::u_1x16 --set twice.log=theirs --set "
                   "twice.factor=5",
          0, ""}});
    const std::string replay = "run \"read name='" + file + "' ! twice ! test\"" + kTwice;
    expectAnswers(
        {{replay, 0, "twice.log = \"theirs\" of the recording is not used", "twice Int = 5", "\1", "theirs"},
         {replay + " --set twice.log=mine", 0, "", "log String = \"mine\"", "not used", "theirs"}});
}

TEST(Plugins, andCommandsBesideTheProgramAreFound)
{
    const TempDir prefix;
    namespace fs = std::filesystem;
    const auto place = [&](const std::string& from, const std::string& to) {
        fs::create_directories(fs::path(prefix / to).parent_path());
        fs::copy_file(from, prefix / to);
    };
    const std::string program = std::string("scansteps") + kProgramEnding, bin = SCANSTEPS_BIN_DIR "/";
    const std::string library = std::string(kPrefix) + "scansteps" + kLibraryEnding;
    place(bin + program, "bin/" + program);
    place(bin + library, "bin/" + library);
    place(bin + program, std::string("lib/scansteps/scansteps-again") + kProgramEnding);
    place(PLUGIN("twice"), std::string("lib/scansteps/one") + kLibraryEnding);
    place(PLUGIN("twice"), std::string("lib/scansteps/two") + kLibraryEnding);
    prefix.write(std::string("lib/scansteps/broken") + kLibraryEnding, "no library");

    const auto run = [&](const std::string& arguments, const std::string& input = "") {
        return runCommand("\"" + (prefix / "bin/scansteps") + "\" " + arguments, input);
    };
    const auto steps = run("steps twice");
    EXPECT_EQ(steps.exitCode, 0);
    EXPECT_THAT(steps.err, HasSubstr("broken"));
    EXPECT_THAT(steps.err,
                HasSubstr("its kind \"twice\" (class Twice) exists already (class Twice of twice "));
    EXPECT_EQ(run("steps" + kTwice).exitCode, 5) << "another file with the same kind";
    EXPECT_EQ(run("steps --quiet").err, "");

    // The command is the program itself, in a folder without the step library.
    EXPECT_THAT(run("help").out, HasSubstr("Commands of plug-ins: again"));
    EXPECT_THAT(run("help again").out, HasSubstr("Usage: scansteps"));
    const std::string with = " --library \"" + (prefix / "bin/") + library + "\"";
    EXPECT_THAT(run("again run \"a b\"" + with).err, HasSubstr("there is no kind \"a\""));
    const auto through = run("again check -" + with, R"({"steps": ["cyuf"]})");
    EXPECT_EQ(through.exitCode, 2);
    EXPECT_THAT(through.err, HasSubstr("did you mean \"cyuv\"?"));
    EXPECT_THAT(run("agian").err, HasSubstr("did you mean \"again\"?"));
    EXPECT_EQ(run("../lib/scansteps/scansteps-again").exitCode, 2);
}

TEST(Plugins, logLevels)
{
    const std::string merged = "info: step 1 (mfilt): settings merged: {\"mfilt\":{\"val\":1}}",
                      dropped = "info: step 1 (mfilt): 1 of 3 records of frames passed on",
                      run = "run \"mfilt val=1 ! clast OCV.a=1\" --frames 3";
    expectAnswers({{run + " -v", 0, merged},
                   {run + " -v", 0, dropped},
                   {run + " -v", 0, "info: step library: "},
                   {run, 0, "warning", "", "info:"},
                   {run + " --quiet", 0, "", "", "scansteps"},
                   {run + " --quiet -v", 2, "--quiet"}});
    const Variable level("SCANSTEPS_LOG", "info");
    expectAnswers({{run, 0, merged}, {run + " --quiet", 0, "", "", "scansteps"}});
    const Variable other("SCANSTEPS_LOG", "error");
    expectAnswers({{run, 0, "", "", "scansteps"}});
    const Variable wrong("SCANSTEPS_LOG", "all");
    expectAnswers({{run, 0, "SCANSTEPS_LOG is \"all\""}});
}

TEST(NewStep, writesTheExampleAndRefusesWhatIsThere)
{
    const TempDir dir;
    namespace fs = std::filesystem;
    expectAnswers({{"new-step scale --plugin-project \"" + (dir / "made") + "\"", 0, "", "scale_kernel.cpp"},
                   {"new-step scale --plugin-project \"" + (dir / "made") + "\"", 2, "is not empty"},
                   {"new-step cyuv --plugin-project \"" + (dir / "cyuv") + "\"", 2, "exists already"},
                   {"new-step Scale --plugin-project \"" + (dir / "other") + "\"", 2, "cannot be the name"}});
    const fs::path example = SCANSTEPS_SOURCE_DIR "/examples/plugin";
    std::set<fs::path> made, kept;
    for (const auto& file : fs::directory_iterator(dir / "made")) {
        made.insert(file.path().filename());
        EXPECT_EQ(readFile(file.path()), readFile(example / file.path().filename()))
            << "scripts/generate.sh makes it anew";
    }
    for (const auto& file : fs::directory_iterator(example)) kept.insert(file.path().filename());
    EXPECT_EQ(made, kept);
}

}  // namespace
}  // namespace scansteps
