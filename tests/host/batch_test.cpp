// scansteps batch: what jobs get and write, what is refused, failures, resuming after a kill. The Slurm
// engine and many kills: tests/batch.
#ifdef __linux__

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <tuple>

#include "support/process.h"

namespace scansteps {
namespace {

using Json = nlohmann::json;
using test::TempDir;

// A folder with series of small pictures, in which the program runs.
class Batch : public testing::Test
{
  protected:
    void pictures(const std::string& folder, int count, unsigned char first = 0)
    {
        std::filesystem::create_directories(folder_.path() / folder);
        for (int i = 0; i < count; ++i)
            folder_.write(folder + "/img000" + std::to_string(i) + ".ppm",
                          "P6\n16 8\n255\n" + std::string(16 * 8 * 3, char(first + 20 * i)));
    }
    test::ProgramResult run(const std::string& arguments, const std::string& before = "")
    {
        return test::runCommand("cd \"" + folder_.path().string() + "\" && " + before +
                                " \"" SCANSTEPS_BIN_DIR "/scansteps\" " + arguments);
    }
    std::string file(const std::string& name) { return test::readFile(folder_ / name); }
    bool exists(const std::string& name) { return std::filesystem::exists(folder_.path() / name); }
    Json report() { return Json::parse(file("report.json")); }
    std::size_t count(const std::string& state)
    {
        const std::string text = file("scansteps-batch/journal.jsonl"),
                          wanted = "\"state\":\"" + state + "\"";
        std::size_t found = 0;
        for (std::size_t at = 0; (at = text.find(wanted, at)) != text.npos; ++at) ++found;
        return found;
    }

    TempDir folder_;
};

constexpr const char* kCopy = "\"cjread ! cjwrite quality=90 ! clast\" ";

TEST_F(Batch, namesWithBlanksQuotesAndExclamationMarksReachTheirJobs)
{
    for (const char* name : {"a ! b", "it's", "quo\"te $HOME", "plain"})
        pictures(std::string("in/") + name, 2);
    const auto result = run(std::string("batch ") + kCopy +
                            "--each 'in/*/img0000.ppm' --out 'out/{dir}/x0000.ppm' --report report.json");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* name : {"a ! b", "it's", "quo\"te $HOME", "plain"})
        for (const char* number : {"0", "1"})
            EXPECT_EQ(file(std::string("out/in/") + name + "/x000" + number + ".ppm"),
                      file(std::string("in/") + name + "/img000" + number + ".ppm"));
    EXPECT_EQ(report()["done"], 4);
    EXPECT_EQ(report()["jobs"][0]["frames"], 2);
}

// Columns go into settings of every kind; a parameter study needs no input column.
TEST_F(Batch, columnsOfAListFillSettings)
{
    pictures("in", 1);
    folder_.write("study.csv", "\xEF\xBB\xBFlow,high,name\r\n60,160,\"a, \"\"b\"\"\"\r\n61,161.5,{c}\r\n");
    const auto result =
        run("batch \"cjread load.name=in/img0000.ppm ! cyuv ! ccanny trl={low} ! test ! cjwrite "
            "name='out/{{{name}-{n}.ppm' ! clast\" --list study.csv --set OCV.trh={high} --frames 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(exists("out/{a, \"b\"-0.ppm"));
    EXPECT_TRUE(exists("out/{{c}-1.ppm"));
    EXPECT_NE(file("scansteps-batch/logs/1.log").find("161.5"), std::string::npos);
}

// Jobs load the plug-ins of the batch, and keep to one thread unless told otherwise.
TEST_F(Batch, jobsHaveThePlugInsOfTheBatchAndOneThread)
{
    pictures("in", 3);
    for (const auto& [set, ahead, behind] :
         {std::tuple("", "0", "0"), {" --set load.ahead=2 --set write.behind=3", "2", "3"}}) {
        const auto result = run(std::string("batch \"cjread ! twice ! cjwrite ! test ! clast\" --plugin \"") +
                                SCANSTEPS_BIN_DIR
                                "/test_plugins/libscansteps-twice.so\" --each "
                                "'in/img0000.ppm' --out 'out/{stem}.ppm' --resume" +
                                set);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const std::string log = file("scansteps-batch/logs/0.log");
        for (const std::string& line : {std::string("twice Int = 2"), std::string("ahead Int = ") + ahead,
                                        std::string("behind Int = ") + behind})
            EXPECT_NE(log.find(line), std::string::npos) << line << " in " << log;
    }
}

TEST_F(Batch, whatCannotWorkIsRefusedBeforeTheFirstJob)
{
    pictures("in", 3);
    folder_.write("bad.csv", "a,b\n1\n");
    folder_.write("list", "in/img0000.ppm\nin/img0001.ppm\n");
    const std::pair<const char*, const char*> cases[] = {
        {"clast", "needs --each, --list or --split"},
        {"clast --each 'in/*'", "every job would be the same"},
        {"\"cjread ! clast\" --each 'nothing/*'", "no file matches"},
        {"\"cjread ! clast\" --list bad.csv", "bad.csv, line 2: 1 fields, but the header has 2"},
        {"\"cjread ! clast\" --each 'in/*' --out x.ppm", "the pipeline has none"},
        {"\"cjread ! cjwrite ! filesaver\" --each 'in/*' --out x.ppm", "(cjwrite), step 3 (filesaver)"},
        {"\"cjread ! cjwrite name={stm}.ppm ! clast\" --each 'in/*'", "did you mean \"stem\"?"},
        {"\"cjread ! cjwrite name={.ppm ! clast\" --each 'in/*'", "not closed"},
        {"\"cjread ! cyuv ! ccanny trl={stem} ! clast\" --each 'in/*'", "not a value of kind Float"},
        {"\"cjread ! cjwrite ! clast\" --each 'in/*' --frames 1", "both write default0000.jpg"},
        {"\"cjread ! cjwrite name=out/{stem}.ppm ! clast\" --each 'in/*'", "--frames limits"},
        {"\"cjread load.name=in/img0000.ppm ! cyuv ! cbuff Size=2 ! clast\" --split 1", "step 3 (cbuff)"},
        {"\"cjread load.name=in/img0000.ppm ! filesaver name=x ! clast\" --split 1", "step 2 (filesaver)"},
        {"\"cjread load.name=in/img9.ppm ! clast\" --split 1", "there is no picture in/img9.ppm"},
        {"\"cjread load.name=in/img0000.ppm ! cjwrite name=o8.ppm ! clast\" --split 1", "too few digits"},
    };
    for (const auto& [arguments, text] : cases) {
        const auto result = run(std::string("batch ") + arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments;
        EXPECT_NE(result.err.find(text), std::string::npos) << arguments << "\n" << result.err;
    }
    EXPECT_EQ(run("batch \"cf2u ! cf2u ! cjwrite name={n}.ppm\" --list list").exitCode, 3);
    EXPECT_FALSE(exists("scansteps-batch"));
}

TEST_F(Batch, aSplitSeriesIsNumberedAsAWhole)
{
    pictures("in", 8);
    const auto result =
        run("batch \"cjread load.name=in/img0006.ppm load.incr=-2 ! cjwrite name=out/x0098.ppm ! clast\" "
            "--split 3 -j 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::pair<const char*, const char*> same[] = {
        {"x0098", "img0006"}, {"x0099", "img0004"}, {"x0100", "img0002"}, {"x0101", "img0000"}};
    for (const auto& [out, in] : same)
        EXPECT_EQ(file(std::string("out/") + out + ".ppm"), file(std::string("in/") + in + ".ppm"));
    EXPECT_EQ(count("done"), 2U);
    EXPECT_FALSE(exists("out/x0102.ppm"));
}

// One job fails, another crashes; both leave no recording, and are all that is repeated.
TEST_F(Batch, failuresAreNamedRetriedAndResumed)
{
    for (const char* name : {"a", "b", "c"}) pictures(std::string("in/") + name, 2);
    const std::string bad = "\"cjread ! cdump row={row} name=out/{name}.raw numberOfViews=1 ! clast\" ";
    folder_.write("list.csv",
                  "input,name,row\nin/a/img0000.ppm,a,1\nin/b/img0000.ppm,b,99\nin/c/img0000.ppm,c,2\n");
    auto result = run("batch " + bad + "--list list.csv --retry 1 --retry-delay 0.1 --report report.json");
    EXPECT_EQ(result.exitCode, 4) << result.err;
    EXPECT_NE(result.err.find("CPUDump: row 99 of a frame of 8 rows"), std::string::npos) << result.err;
    EXPECT_EQ(count("failed"), 2U);
    EXPECT_EQ(report()["jobs"][1]["state"], "failed");
    EXPECT_EQ(report()["jobs"][1]["exit"], 4);
    EXPECT_FALSE(exists("out/b.raw"));
    EXPECT_EQ(run("batch " + bad + "--list list.csv").exitCode, 2);  // without --resume

    folder_.write("list.csv",
                  "input,name,row\nin/a/img0000.ppm,a,1\nin/b/img0000.ppm,b,3\nin/c/img0000.ppm,c,2\n");
    result = run("batch " + bad + "--list list.csv --resume");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("3 done (2 before)"), std::string::npos) << result.err;
    EXPECT_TRUE(exists("out/b.raw"));

    // A changed input and a lost output are done again, and nothing else.
    folder_.write("in/a/img0001.ppm", "P6\n16 8\n255\n" + std::string(16 * 8 * 3, 'x'));
    std::filesystem::remove(folder_.path() / "out/c.raw");
    result = run("batch " + bad + "--list list.csv --resume");
    EXPECT_NE(result.err.find("3 done (1 before)"), std::string::npos) << result.err;
}

TEST_F(Batch, aKilledBatchIsResumedWithoutRepetition)
{
    for (int i = 0; i < 12; ++i)
        pictures(std::string("in/") + char('a' + i), 4, static_cast<unsigned char>(i));
    const std::string command =
        "batch \"cjread load.incr=0 ! cyuv ! ccanny ! cjwrite name=out/{dir}/x0000.jpg ! filesaver "
        "name=out/{dir}.rec ! clast\" --frames 20 --each 'in/*/img0000.ppm' -j 2 --resume ";
    ASSERT_EQ(run(command + "--dir whole").exitCode, 0);
    std::filesystem::rename(folder_.path() / "out", folder_.path() / "wanted");
    for (const char* seconds : {"0.03", "0.06", "0.09"}) {
        const int code = run(command, std::string("timeout -s KILL ") + seconds).exitCode;
        EXPECT_TRUE(code == 137 || code == 0) << code;
        // What a kill in the middle of a write leaves.
        std::ofstream(folder_.path() / "scansteps-batch/journal.jsonl", std::ios::app) << "{\"key\":\"12";
    }
    const auto result = run(command);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_LE(count("started"), 12U + 3 * 2);
    EXPECT_GE(count("started"), 12U);
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path() / "wanted")) {
        if (!entry.is_regular_file()) continue;
        ++files;
        const auto name = std::filesystem::relative(entry.path(), folder_.path() / "wanted");
        EXPECT_EQ(test::readFile(entry.path()), test::readFile(folder_.path() / "out" / name)) << name;
    }
    EXPECT_EQ(files, 12U * 21);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path() / "out"))
        EXPECT_EQ(entry.path().string().find(".part"), std::string::npos) << entry.path();
}

// Jobs without an end, which would leave recordings if they were let flush.
TEST_F(Batch, aSignalEndsItWithAllItsJobs)
{
    folder_.write("list", "one\ntwo\n");
    const auto result =
        run("batch \"ccap1 capture.dev_name=test:bars ! filesaver name={}.rec ! clast\" --list list -j 2 "
            "--report report.json",
            "timeout -s INT --foreground 2");
    EXPECT_EQ(result.exitCode, 124) << result.err;  // of timeout; it waited for the program
    EXPECT_EQ(report()["jobs"][0]["state"], "interrupted");
    EXPECT_EQ(count("interrupted"), 2U);
    EXPECT_FALSE(exists("one.rec"));
    EXPECT_FALSE(exists("two.rec"));
    for (const auto& name : folder_.names()) EXPECT_EQ(name.find(".part"), std::string::npos) << name;
}

}  // namespace
}  // namespace scansteps

#endif
