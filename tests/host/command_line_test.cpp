// The program as a whole: its output on either stream, and its exit codes.

#include <nlohmann/json.hpp>

#include "scansteps/steps.h"
#include "scansteps/stream.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

using Json = nlohmann::json;

TEST(CommandLine, everyAnswerAndItsExitCode)
{
    expectAnswers({
        {"", 2, "", "Usage:"},
        {"--version", 0, "", "scansteps 0"},
        {"-V", 0, "", "scansteps 0"},
        {"version", 0, "", "scansteps 0"},
        {"help", 0, "", "Usage: scansteps [OPTIONS]"},
        {"help run", 0, "", "--frames"},
        {"__complete run --fr", 0, "", "--frames\t"},
        {"__complete run --types \"\"", 0, "", "error\t\nwarn\t\noff\t\n"},
        {"__complete run \"cjread load.one=true ! cdow\"", 0, "", "cjread load.one=true ! cdown1\t"},
        {"__complete run \"cdown1 factor=2 \"", 0, "", "cdown1 factor=2 dataX=\t"},
        {"__complete run \"c3f channel=\"", 0, "",
         "c3f channel=3\tdefault\nc3f channel=0\t\nc3f channel=1\t"},
        {"__complete run \"cjread ! ccanny\" --set OCV.lp", 0, "", "OCV.lp0=\tpasses"},
        {"__complete run \"cjread load.name=" SCANSTEPS_SOURCE_DIR "/REA\"", 0, "", "/README.md\t"},
        {"help runn", 2, "did you mean \"run\"?"},
        {"inspect --help", 0, "", "Example:\n  scansteps inspect "},
        {"run clast --frams 3", 2, "run has no option \"--frams\"; did you mean \"--frames\"?"},
        {"--vers", 2, "did you mean \"--version\"?"},
        {"run cjread ! clast", 2, "run does not expect \"!\""},
        {"run \"cjread load.name=my shots/a0.jpg\"", 2, "load.name='my shots/a0.jpg'"},
        {"run \"" SCANSTEPS_SOURCE_DIR "/README.md\"", 2, "is a file, but the name of a pipeline file"},
        {"inspct", 2, "there is no command \"inspct\"; did you mean \"inspect\"?"},
        {"run", 2, "PIPELINE"},
        {"run no_such_file.json", 2, "cannot read no_such_file.json: No such file or directory"},
        {"run \"tset\"", 2, "did you mean \"test\"?"},
        {"run \"clast ! ! clast\"", 2, "a step is missing"},
        {"run \"clast !\"", 2, "a step is missing"},
        {"run \"cdown1 fcator=2 ! clast\"", 2, "did you mean \"factor\"?"},
        {"run \"cdown1 factor=0 ! clast\"", 2, "is outside 1 to 2147483647"},
        {"run \"cdown1 factor=abc ! clast\"", 2, "is not a value of kind Int"},
        {"run \"cdown1 factor=1.5 ! clast\"", 2, "does not fit Int"},
        {"run \"cdown1 factor=3000000000 ! clast\"", 2, "does not fit Int"},
        {"run \"clast name=\\\"x\"", 2, "is not closed"},
        {"run clast --frames -1", 2, "--frames: -1 is not a number of frames"},
        {"run clast --types maybe", 2, "--types"},
        {"run clast --set x", 2, "PATH=VALUE"},
        {"run clast --frames 1 --library no/such/library.so", 5, "cannot load the step library"},
        {"run clast --frames 1 --report no/such/folder/r.json", 5, "r.json: No such file or directory"},
        {"run clast --frames 1 --step-output no/such/folder/x", 5, "x: No such file or directory"},
        {"run clast --frames 2 --step-output none --report -", 0, "", "{\n  \"errors\": ["},
        {"run \"clast OCV.\x1B[2J=1\" --frames 1", 0,
         "warning: step 1 (clast): \"OCV.\\u001B[2J\" is not a known"},
        {"run \"clast\" --frames 2", 0, "2 frames in", "   CpuLast time = "},
        {"run \"clast\" --frames 2 --quiet", 0, "", "   CpuLast time = "},
        {"run \"cf2u ! cf2u\" --frames 1", 3, "gives CPU::u_1x16, but step 2 (cf2u) takes CPU::f_1x32"},
        {"run \"cf2u ! cu2f\" --frames 1 --types warn --set dataX=2 --set dataY=2 --set dataFormat=f_1x32", 0,
         "warning: types do not fit"},
        {"run \"cf2u ! clast\" --frames 1 --set dataX=2 --set dataY=2 --set dataFormat=u_1x16", 3,
         "step 1 (cf2u), initialise: the format"},
        {"run \"cyuv ! clast\" --frames 1", 2, "step 1 (cyuv) needs dataX"},
        {"run \"cyuv ! clast\" --frames 1 --set dataX=2 --set dataY=2", 4,
         "step 1 (cyuv), frame 1: [handle] not found"},
        {"run \"cpu ! clast\" --frames 1", 2, "needs cpu.core"},
        {"run \"cpu core=2.5 ! clast\" --frames 1", 2, "2.5 does not fit Int"},
        {"run \"cpu core='{\\\"Uint\\\":2}' ! clast\" --frames 1", 4, "varitype::getv() type error!"},
        {"run \"c2rege ! clast\" --frames 1 --set dataX=2 --set dataY=2", 3, "step 1 (c2rege), initialise"},
        {"check \"cf2u ! cf2u\"", 3, "", "types do not fit"},
        {"check \"cdown1 ! clast\"", 2, "", "needs down1.factor"},
        {"check \"ccap ! cdown1 factor=2147483647 ! clast\"", 0, "", "ok: 3 steps"},
        {"check \"ccap ! ccorner5\"", 2, "", "step 2 (ccorner5) needs cpu_base"},
        {"check \"read load.name=no.rec ! ccorner5\"", 0, "", "step 1 (read) cannot read no.rec: "},
        {"check \"ccap ! ccanny OCV.trg=3 ! clast\"", 0, "", "did you mean OCV.trh?"},
        {"check \"ccap ! cjwrite name=a0.jpg ! cjwrite cjwrite.name=a0.jpg\"", 0, "",
         "write the same file a0.jpg"},
        {"check \"ccap ! cjwrite ! cjwrite\"", 0, "", "write the same file default0000.jpg"},
        {"check \"ccap ! cjwrite ! cjwrite name=b0.jpg ! cply name=a.ply\"", 0, "", "ok: 4 steps"},
        {"check \"cply ! cply\"", 0, "", "write the same file out.ply"},
        {"check \"ccap ! cjwrite name=a0.png ! clast\"", 0, "",
         "writes nothing, cjwrite.name = a0.png has none of"},
        {"check \"cf2u ! cf2u\" --types warn --set dataX=2 --set dataY=2", 0, "",
         "warning: types do not fit"},
        {"check \"cjread ! ccanny\" --set load.name=x0.jpg", 0, "", "takes samples16; put cyuv between"},
        {"check \"cjreadf load.name=x0.jpg ! test ! filesaver name=x.rec\"", 0, "", "put cstrip between"},
        {"check \"cjreadf load.name=x0.jpg ! ccanny ! filesaver name=x.rec\"", 0, "", ".jpg: No such file"},
        {"check \"cjread load.name=x0.jpg\" --set load.name=y0.jpg", 0, "", "--set load.name has no effect"},
        {"check clast --set eventType=1003", 0, "", "eventType is no setting"},
        {"run \"cjread load.name=x0.jpg ! clast\" --strict", 5, "cannot read x0.jpg: No such file"},
        {"check \"ccanny ! clast\" --set thr=3", 2, "",
         "\"thr\" is not a known setting; did you mean OCV.trh?"},
        {"steps ccany", 2, "did you mean \"ccanny\"?"},
        {"steps ccanny", 0, "", "OCV.trh"},
        {"receive --port 99999", 2, "--port: Value 99999 not in range"},
        {"receive --port 0 --out no/such/folder/a.rec", 5, "cannot write no/such/folder/a.rec"},
        {"inspect no_such_recording", 5, "cannot read no_such_recording"},
    });
}

// The folder holds img0 to img2, edge1, and links to photographs.
TEST(CommandLine, filesAreCheckedBeforeARun)
{
    const TempDir folder;
    for (const char* name : {"img0.jpg", "img1.jpg", "img2.jpg", "edge1.jpg"}) folder.write(name, "x");
    std::filesystem::create_directories(folder.path() / "take1");
    std::filesystem::create_hard_link(folder.path() / "img2.jpg", folder.path() / "hard.jpg");
    std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"img0.jpg", 2, "would write"},
        {"take1/../img1.jpg", 2, "would write"},
        {"img3.jpg", 2, "would write"},  // would be read in turn once it exists
        {"hard.jpg", 2, "would write"},
        {"img1.jpg --force", 0, "would write"},
        {"img4.jpg", 0, "ok: "},
        {"edge0.jpg", 0, "edge1.jpg\nok: "},
        {"e8.jpg", 0, "e0.jpg after "},
        {"e.jpg", 0, "no digits"},
        {"take1/e9.jpg", 0, "take2/e0.jpg after "},
        {"take2/e0.jpg", 0, "there is no folder "},
    };
#ifndef _WIN32
    std::filesystem::create_symlink("img0.jpg", folder.path() / "soft0.jpg");
    cases.emplace_back("soft0.jpg", 2, "would write");
#endif
    const std::string first = folder / "img0";
    for (const auto& [output, exitCode, text] : cases) {
        const std::size_t blank = std::min(output.find(' '), output.size());
        expectAnswers({{"check \"cjread load.name=" + first + ".jpg ! cjwrite name=" +
                            (folder / output.substr(0, blank)) + "\"" + output.substr(blank),
                        exitCode, "", text}});
    }
    expectAnswers(
        {{"check \"cjread load.name=" + first + ".jpg ! cply name=" + first + ".obj\"", 2, ""},
         {"check \"ccap1 capture.dev_name=file:" + first + ".jpg@max ! cjwrite name=" + folder / "img3.jpg\"",
          2, ""}});
}

TEST(CommandLine, stepsAsJsonIsTheTableOfKinds)
{
    const Json list = Json::parse(runProgram("steps --json").out);
    // Those of the bundled plug-ins stand beside the library's own.
    const auto own = std::ranges::count_if(list, [](const Json& step) {
        const auto isStep = [&](const StepInfo& each) { return step["kind"] == each.kind; };
        return std::ranges::any_of(kLibrarySteps, isStep);
    });
    ASSERT_EQ(std::size_t(own), kLibrarySteps.size());
    const Json canny = Json::parse(runProgram("steps ccanny --json").out);
    EXPECT_EQ(canny["frames"], Json({{"in", "samples16"}, {"out", "samples16"}}));
    for (const Json& setting : canny["settings"])
        if (setting["path"] == "OCV.trh") {
            EXPECT_EQ(setting["default"], 900.0);
        }
    EXPECT_EQ(Json::parse(runProgram("steps cdump --json").out)["settings"][4]["role"], "output");
}

TEST(CommandLine, generatedFilesAreUpToDate)
{
    const std::filesystem::path root(SCANSTEPS_SOURCE_DIR);
    // The parts of the page by plug-in.
    const auto parts = [](const std::string& page) {
        std::map<std::string, std::string> result;
        const std::string heading = "\n## Plug-in ";
        for (std::size_t at = 0; at < page.size();) {
            const std::size_t end = std::min(page.find(heading, at + 1), page.size());
            result[at == 0 ? "" : page.substr(at, page.find('\n', at + 1) - at)] = page.substr(at, end - at);
            at = end;
        }
        return result;
    };
    const auto built = parts(runProgram("steps --markdown").out),
               kept = parts(readFile(root / "docs" / "steps.md"));
    for (const auto& [heading, part] : built)
        EXPECT_TRUE(kept.contains(heading) && kept.at(heading) == part)
            << heading << ": run scripts/generate.sh";
    if (built.size() < kept.size()) GTEST_SKIP() << "not all plug-ins that the schema shows are built here";
    EXPECT_TRUE(runProgram("steps --schema").out == readFile(root / "pipeline.schema.json"))
        << "run scripts/generate.sh";
}

// The record printer shows the settings that a step receives: those of the pipeline, of the steps before it
// and its own, with values of every kind.
TEST(Pipelines, settingsArriveWhereAndAsTheyShould)
{
    const std::string pipeline = R"({
        "$schema": "pipeline.schema.json", "frames": 1,
        "settings": {"OCV": {"trl": 40, "trh": 90.5}, "mine": {"a": true, "b": false, "c": null, "d": 7},
                     "forced": {"Double": 1.5}, "u": {"Uchar": 200}, "h": {"Half": 0.5},
                     "list": {"StructArray": [{"x": 1}]},
                     "m": {"Array": {"type": "Float", "dims": [2, 1, 1], "data": [1, 2.5]}}},
        "steps": ["test",
                  {"kind": "clast", "settings": {"OCV": {"trl": 50}, "mine": 3}},
                  {"kind": "test"}]})";
    const auto result = runProgram("run - --quiet", pipeline);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::size_t second = result.out.find("Test::", result.out.find("Test::") + 1);
    const std::string first = result.out.substr(0, second), later = result.out.substr(second);
    for (const char* part :
         {"trl Float = 40\n", "trh Float = 90.5\n", "a Int = 1\n", "d Int = 7\n", "forced Double = 1.5",
          "u Uchar = 200", "h Half = 0.5", "x Int = 1", "size =8", "eventType Int = 1001"})
        EXPECT_NE(first.find(part), std::string::npos) << part << "\n" << first;
    for (const char* part : {"  b ", "  c "}) EXPECT_EQ(first.find(part), std::string::npos) << part;
    for (const char* part : {"trl Float = 50\n", "trh Float = 90.5\n", "mine Int = 3\n"})
        EXPECT_NE(later.find(part), std::string::npos) << part << "\n" << later;
}

TEST(Pipelines, filesThatAreWrong)
{
    const std::string nested(300000, '[');
    const std::pair<const char*, const char*> cases[] = {
        {"", "standard input: line 1, column 1: "},
        {"{\"steps\":\n [oops]}", "standard input: line 2, column 3: syntax error"},
        {"{\"steps\":\n [1e999]}", "standard input: line 2, column 3: number overflow"},
        {"[]", "an object with \"steps\""},
        {nested.c_str(), "nested too deeply"},
        {"{\"steps\": []}", "no steps"},
        {"{\"steps\": [7]}", "a step is a kind"},
        {"{\"steps\": [\"clast\"], \"setings\": {}}", "did you mean \"settings\"?"},
        {"{\"steps\": [{\"kind\": \"clast\", \"nme\": \"x\"}]}", "did you mean \"name\"?"},
        {"{\"steps\": [\"clast\"], \"frames\": 1.5}", "\"frames\" is of the wrong type"},
        {"{\"steps\": [\"clast\"], \"settings\": {\"a\": 3000000000}}", "does not fit Int"},
        {"{\"steps\": [\"clast\"], \"settings\": {\"a\": [1]}}", "a list stands for nothing"},
        {"{\"steps\": [\"clast\"], \"settings\": {\"a\": {\"Uchar\": 256}}}", "does not fit Uchar"},
        {"{\"steps\": [\"clast\"], \"settings\": {\"a\": {\"Array\": {\"type\": \"Float\", \"dims\": [2, 1, "
         "1], "
         "\"data\": [1]}}}}",
         "number of elements"},
        {"{\"steps\": [\"ccanny\"], \"settings\": {\"OCV\": {\"trh\": \"high\"}}}", "OCV.trh"},
        {"{\"steps\": [\"ccanny\"], \"settings\": {\"OCV\": 3}}", "group of settings"},
    };
    for (const auto& [text, message] : cases)
        expectAnswers({{.arguments = "check -", .exitCode = 2, .err = message, .input = text}});
}

// --step-output redirects the output of the steps; a report to the same file follows it.
TEST(Pipelines, reportAndOutputGoWhereTheyAreToldAndAreNeverCut)
{
    const TempDir folder;
    const std::string both = folder / "b \xC3\xA4.json";
    const auto result = runProgram(
        "run \"cyuv ! clast\" --set dataX=4 --set dataY=2 --set dataFormat=u_1x8 --frames 3 "
        "--step-output \"" +
        both + "\" --report \"" + both + "\"");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    const std::string text = readFile(both);
    EXPECT_THAT(text, StartsWith("    CpuYUV time = "));
    const Json report = Json::parse(text.substr(text.find('{')));
    EXPECT_EQ(report["frames"], 3);
    EXPECT_EQ(report["exitCode"], 0);
    EXPECT_EQ(report["steps"][0]["class"], "CpuYUV");
    EXPECT_TRUE(report["errors"].empty());
    EXPECT_EQ(runProgram("run clast --frames 1 --quiet --step-output - --report \"" + both + "\"").exitCode,
              0);
    EXPECT_EQ(Json::parse(readFile(both))["frames"], 1) << "replaced";
    EXPECT_THAT(folder.names(), SizeIs(1));
}

TEST(Pipelines, veryLongNamesCostNothing)
{
    const auto start = std::chrono::steady_clock::now();
    const auto result = runProgram("check -", "{\"steps\": [\"clast\"], \"settings\": {\"OCV\": {\"" +
                                                  std::string(1000000, 'k') + "\": 1}}}");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_LT(result.out.size(), 1000U);
}

TEST(Inspect, everyKindOfValueInItsForm)
{
    const TempDir folder;
    Array array(Kind::Ushort, 2, 1);
    array.elements<std::uint16_t>()[1] = 5;
    varitype bare;
    bare.setKind(Kind::Array);
    const varitype record{Struct{{"array", array},
                                 {"double", 0.1},
                                 {"empty", varitype()},
                                 {"float", 2.0F},
                                 {"int", -1},
                                 {"list", StructArray{Struct{{"x", 1}}}},
                                 {"odd", Struct{{"Int", 5}}},
                                 {"text", "\xFF"},
                                 {"uint", 4000000000U}}};
    {
        BIOfs file((folder / "a.rec"), BIOfs::Mode::Write);
        writeRecord(file, record);
        writeRecord(file, varitype{Struct{}});
    }
    const auto result = runProgram("inspect --json --data \"" + (folder / "a.rec") + "\"");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::istringstream lines(result.out);
    std::string line;
    std::getline(lines, line);
    Json first = Json::parse(line);
    EXPECT_EQ(first["offset"], 0);
    EXPECT_EQ(first["size"], recordSize(record));
    first["record"].erase("text");
    EXPECT_EQ(first["record"], Json::parse(R"({
        "array": {"Array": {"type": "Ushort", "bytes": 4, "dims": [2, 1, 1], "data": [0, 5]}},
        "double": {"Double": 0.1},
        "empty": {"Empty": null}, "float": 2.0, "int": -1, "list": {"StructArray": [{"x": 1}]},
        "odd": {"Struct": {"Int": 5}}, "uint": {"Uint": 4000000000}})"));
    EXPECT_TRUE(first["record"]["float"].is_number_float());
    std::getline(lines, line);
    EXPECT_EQ(Json::parse(line)["offset"], recordSize(record));
    EXPECT_EQ(Json::parse(line)["size"], 16);
}

}  // namespace
}  // namespace scansteps
