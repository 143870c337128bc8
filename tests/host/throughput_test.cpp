// Reading ahead and writing behind: whatever is set, a run prints, reports and writes the same.
#include <regex>

#include "support/images.h"
#include "support/jpeg.h"
#include "support/process.h"
#include "support/resources.h"
#include "support/test.h"

namespace scansteps {
namespace {

constexpr int kPictures = 12;
const std::string kThreads = " --set load.ahead=3 --set write.behind=2";
const std::string kNoThreads = " --set load.ahead=0 --set write.behind=0";

std::string numbered(const std::string& stem, int number, const std::string& ending)
{
    return stem + (number < 10 ? "0" : "") + std::to_string(number) + ending;
}

std::string ppm(int grey, int width = 8, int height = 4)
{
    return "P6 " + std::to_string(width) + " " + std::to_string(height) + " 255\n" +
           std::string(std::size_t(3 * width * height), char(grey));
}

std::string jpegFile(int seed)
{
    Image image{96, 64, std::vector<std::uint8_t>(std::size_t(96 * 64 * 3))};
    for (std::size_t i = 0; i < image.rgb.size(); ++i) image.rgb[i] = std::uint8_t(i * i / 300 + seed * 9);
    const auto bytes = encodeJpeg(image, {});
    return {bytes.begin(), bytes.end()};
}

// "a00.ppm" ... print while they are read; of "j00.jpg" ..., one is cut off.
void writeSeries(const TempDir& folder)
{
    for (int i = 0; i < kPictures; ++i) {
        folder.write(numbered("a", i, ".ppm"), ppm(10 + i));
        const std::string jpeg = jpegFile(i);
        folder.write(numbered("j", i, ".jpg"), i == 7 ? jpeg.substr(0, jpeg.size() / 2) : jpeg);
    }
    folder.write(numbered("a", 9, ".ppm"), "P5 2 1 255\n");
}

// "in.rec" from "j00.jpg" ..., the same cut off in a record, and with a damaged one.
void writeRecordings(const TempDir& folder)
{
    runProgram("run \"cjread load.name=" + (folder / "j00.jpg") +
               " ! cyuv ! filesaver name=" + (folder / "in.rec") + "\"" + kNoThreads);
    std::string bytes = readFile(folder / "in.rec");
    folder.write("cut.rec", bytes.substr(0, bytes.size() * 2 / 3));
    std::fill_n(bytes.begin() + std::ptrdiff_t(bytes.size() / 2), bytes.size() / kPictures, char(0xFF));
    folder.write("bad.rec", bytes);
}

// The records of a recording, except the first, which holds the settings.
std::string framesOf(const std::string& recording)
{
    const std::string text = runProgram("inspect \"" + recording + "\" --json --data").out;
    return std::regex_replace(text.substr(text.find('\n')), std::regex("\"offset\": [0-9]+"), "");
}

// What a run leaves: all it printed, but for times, and the content of every file.
std::string outcome(const std::string& line, const std::string& options)
{
    const TempDir folder;
    writeSeries(folder);
    if (line.starts_with("read")) writeRecordings(folder);
    std::string in = line;
    for (std::size_t at = 0; (at = in.find('@')) != in.npos;) in.replace(at, 1, folder / "");
    const auto run = runProgram("run \"" + in + "\"" + options);
    std::string text = std::to_string(run.exitCode) + "\n" + run.out + "\n";
    for (const std::string& name : folder.names()) {
        if (name.ends_with(".rec"))
            text += framesOf(folder / name);
        else
            text += name + " " + readFile(folder / name) + "\n";
    }
    const std::regex trouble("scansteps: (warning|error).*|can't .*");
    for (std::sregex_iterator at(run.err.begin(), run.err.end(), trouble), end; at != end; ++at)
        text += at->str() + "\n";
    for (std::size_t at = 0; (at = text.find(folder / "")) != text.npos;)
        text.erase(at, (folder / "").size());
    return std::regex_replace(text, std::regex("time = +[-+.0-9e]+"), "");
}

TEST(Throughput, threadsChangeNothing)
{
    const std::pair<const char*, const char*> table[] = {
        {"cjread load.name=@a00.ppm ! cjwrite name=@out00.ppm", ""},  // stops at a damaged file
        {"cjread load.name=@j00.jpg ! cyuv ! ccanny ! cjwrite name=@out00.jpg ! filesaver name=@r.rec", ""},
        {"cjreadf load.name=@j00.jpg ! cstrip ! filesaver name=@r.rec", ""},
        {"cjread load.name=@a08.ppm load.incr=-2 load.count=3 ! cjwrite name=@one.ppm", ""},
        {"cjread load.name=@j00.jpg load.incr=0 load.count=5 ! cyuv ! cdump row=3 name=@rows",
         " --set numberOfViews=1"},
        {"cjread load.name=@j00.jpg ! cjwrite name=@missing/out00.jpg", ""},
        {"cjread load.name=@a00.ppm ! cjwrite name=@a00.ppm", " --force"},
        {"cjread load.name=@j00.jpg ! cjwrite name=@j02.jpg", " --force --frames 9"},
        {"read load.name=@in.rec ! ccanny ! filesaver name=@r.rec", ""},
        {"reads load.name=@cut.rec ! filesaver name=@r.rec", ""},
        {"readd load.name=@bad.rec ! filesaver name=@r.rec", ""},
        {"read load.name=@in.rec ! filesaver name=@in.rec", " --force"},
    };
    for (const auto& [line, options] : table) {
        const std::string without = outcome(line, options + kNoThreads);
        EXPECT_EQ(outcome(line, options + kThreads), without) << line;
        EXPECT_EQ(outcome(line, options), without) << line << ", as it is by default";
    }
}

// A folder that is changed after its files were read ahead, between the third and the fourth frame.
TEST(Throughput, filesAreTakenAsTheyAreAtTheirTurn)
{
    using Change = void (*)(const TempDir&);
    const struct
    {
        const char* what;
        Change change;
        std::vector<int> greys;
        bool stops;
    } table[] = {
        {"nothing", [](const TempDir&) {}, {0, 1, 2, 3, 4}, true},
        {"a missing file appears",
         [](const TempDir& dir) { dir.write("f05.ppm", ppm(5)), dir.write("f06.ppm", ppm(6)); },
         {0, 1, 2, 3, 4, 5, 6},
         false},
        {"a damaged file is completed",
         [](const TempDir& dir) { dir.write("f05.ppm", ppm(50)); },
         {0, 1, 2, 3, 4, 50},
         false},
        {"a file is replaced",
         [](const TempDir& dir) { dir.write("f04.ppm", ppm(99, 9, 9)); },
         {0, 1, 2, 3, 99},
         true},
        {"a file is removed",
         [](const TempDir& dir) { std::filesystem::remove(dir.path() / "f04.ppm"); },
         {0, 1, 2, 3},
         false},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        const TempDir dir;
        for (int i = 0; i < 5; ++i) dir.write(numbered("f", i, ".ppm"), ppm(i));
        dir.write("f05.ppm", "P6 8 4 255\n");
        if (row.change == table[1].change) std::filesystem::remove(dir.path() / "f05.ppm");
        Chain chain({"cjread"});
        printed([&] {
            chain.init({{"load", Struct{{"name", dir / "f00.ppm"}, {"ahead", 4}}}});
            for (int i = 0; i < 20; ++i) {
                if (chain.process() == event::kFlush) break;
                if (i != 1) continue;
                std::this_thread::sleep_for(std::chrono::milliseconds(30));  // all four are read ahead
                row.change(dir);
            }
        });
        std::vector<int> greys;
        for (std::size_t i = 1; i < chain.arrived.size(); ++i)
            greys.push_back(int(chain.arrived[i].frame->data()[0]));
        EXPECT_EQ(greys, row.greys);
        EXPECT_EQ(chain.notices.size(), row.stops ? 1U : 0U);
    }
}

TEST(Throughput, threadsBeginWithTheSecondFrameAndEndWithTheRun)
{
    const TempDir dir;
    for (int i = 0; i < 5; ++i) dir.write(numbered("f", i, ".ppm"), ppm(i));
    for (int i = 0; i < 9; ++i) dir.write(numbered("h", i, ".ppm"), ppm(i));
    for (const auto& row : {std::pair("f04.ppm", 0), std::pair("h00.ppm", 2)}) {
        const auto name = row.first;
        const auto most = row.second;
        const auto before = resourcesHeldAtRest().threads;
        Chain chain({"cjread", "cjwrite"});
        printed([&] {
            chain.init({{"load", Struct{{"name", dir / name}, {"ahead", 1}}},
                        {"cjwrite", Struct{{"name", dir / "out00.ppm"}}},
                        {"write", Struct{{"behind", 1}}}});
            for (int i = 0; i < 3; ++i) chain.process();
            EXPECT_EQ(resourcesHeld().threads - before, most) << name;
            chain.flush();
        });
    }
}

// Without a flush, what was passed on is still written.
TEST(Throughput, stepsThatAreDeletedHaveWrittenTheirFrames)
{
    const TempDir dir;
    for (const char* kind : {"cjwrite", "filesaver"}) {
        Chain chain({kind});
        chain.init({{"cjwrite", Struct{{"name", dir / "out00.ppm"}}},
                    {"save", Struct{{"name", dir / "r.rec"}}},
                    {"dataFormat", "CPU::u_1x8"},
                    {"dataX", 8},
                    {"dataY", 4}});
        const Array frame(Kind::Uchar, 24, 4);
        for (int i = 0; i < 5; ++i) chain.process(&frame);
    }
    EXPECT_THAT(dir.names(),
                ElementsAre("out00.ppm", "out01.ppm", "out02.ppm", "out03.ppm", "out04.ppm", "r.rec"));
    EXPECT_GT(std::filesystem::file_size(dir.path() / "r.rec"), 5U * 24 * 4);
}

TEST(Throughput, theReportListsTheTimeOfThreadsApart)
{
    const TempDir dir;
    writeSeries(dir);
    const auto run =
        runProgram("run \"cjread load.name=" + (dir / "j00.jpg") + " ! cjwrite name=" + (dir / "out00.jpg") +
                   "\" --step-output none --report -" + kThreads);
    const std::regex worker("\"workerSeconds\": ");
    EXPECT_EQ(std::distance(std::sregex_iterator(run.out.begin(), run.out.end(), worker), {}), 2) << run.out;
    EXPECT_THAT(run.err, HasSubstr("meanwhile, its threads"));
}

#ifndef _WIN32

// Both runs end with as many whole records as fit, and an error that names step, file and reason.
TEST(Throughput, aFileSizeLimitCutsARecordingAtTheSamePlace)
{
    std::uintmax_t sizes[2] = {};
    for (const bool threads : {false, true}) {
        const TempDir folder;
        writeSeries(folder);
        const std::string name = folder / "r.rec";
        const auto run = runCommand(
            "ulimit -f 120; \"" SCANSTEPS_BIN_DIR "/scansteps\" run \"cjread load.name=" +
            (folder / "j00.jpg") + " ! filesaver name=" + name + "\"" + (threads ? kThreads : kNoThreads));
        EXPECT_EQ(run.exitCode, 4);
        EXPECT_THAT(run.err, HasSubstr("filesaver"));
        EXPECT_THAT(run.err, HasSubstr("write error: " + name + ": File too large"));
        sizes[threads] = std::filesystem::file_size(name);
        const auto records = runProgram("inspect \"" + name + "\" --json");
        EXPECT_GT(std::count(records.out.begin(), records.out.end(), '\n'), 2) << records.out;
    }
    EXPECT_EQ(sizes[0], sizes[1]);
}

#endif

}  // namespace
}  // namespace scansteps
