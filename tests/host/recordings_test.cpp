// Recording, replay and inspection with the real program and real files.

#include <png.h>

#include <nlohmann/json.hpp>

#include "images/image_file.h"
#include "support/process.h"
#include "support/test.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace scansteps {
namespace {

using namespace images;

const std::string kImages = SCANSTEPS_SOURCE_DIR "/examples/images/";
const std::string kSource = "cjread load.name=" + kImages + "img0000.jpg load.count=3 ! cyuv ! ";

// The records after the first: init records of two runs differ in their settings.
std::string framesOf(const std::string& path)
{
    const std::string bytes = readFile(path);
    std::uint64_t first = 0;
    std::memcpy(&first, bytes.data(), sizeof first);
    EXPECT_GT(bytes.size(), 1000000U);
    return bytes.substr(static_cast<std::size_t>(first));
}

TEST(Recording, ReplaysTheFramesThatWereRecorded)
{
    const TempDir dir;
    const std::string edges = "ccanny trl=200 trh=500 ! cjwrite name=";
    ASSERT_EQ(runProgram("run \"" + kSource + "filesaver name=" + (dir / "run.rec") + " ! " + edges +
                         (dir / "a0.ppm") + "\"")
                  .exitCode,
              0);
    const auto replay =
        runProgram("run \"read load.name=" + (dir / "run.rec") + " ! " + edges + (dir / "b0.ppm") + "\"");
    ASSERT_EQ(replay.exitCode, 0) << replay.err;
    EXPECT_THAT(replay.err, HasSubstr("4 frames in"));
    for (const char* number : {"0", "1", "2", "3"}) {
        const std::string a = readFile(dir / ("a" + std::string(number) + ".ppm"));
        EXPECT_GT(a.size(), 900000U);
        EXPECT_TRUE(a == readFile(dir / ("b" + std::string(number) + ".ppm")));
    }
    // Re-recorded: the settings of the step are merged into the replayed init record, too.
    const auto again = runProgram("run \"readd load.name=" + (dir / "run.rec") +
                                  " ! filesaver name=" + (dir / "again.rec") + "\"");
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_TRUE(framesOf(dir / "run.rec") == framesOf(dir / "again.rec"));
}

// The record printer after the player shows the settings that the steps of a replay receive.
TEST(Recording, DecidesNeitherWhereToWriteNorOverTheUser)
{
    const TempDir dir;
    const auto group = [](const char* key, varitype value) {
        return varitype(Struct{{key, std::move(value)}});
    };
    {
        BIOfs file(dir / "a.rec", BIOfs::Mode::Write);
        writeRecord(file, Struct{{"eventType", 1001},
                                 {"dataX", 4},
                                 {"dataY", 2},
                                 {"dataFormat", "u_1x16"},
                                 {"save", group("name", "evil.rec")},
                                 {"cjwrite", group("name", "evil.jpg")},
                                 {"sender", Struct{{"host", "evil"}, {"port", 1}}},
                                 {"export", group("name", "evil.ply")},
                                 {"mine", group("a", 1)},
                                 {"OCV", Struct{{"lp0", 1}, {"order", 5}, {"trl", 1.0F}, {"trh", 1.0F}}}});
        writeRecord(file, Struct{{"eventType", 1003}});
    }
    for (const char* player : {"read", "readd"}) {
        SCOPED_TRACE(player);
        const auto result = runProgram(
            "run - --set OCV.trh=7 --set dataX=9",
            std::string(
                R"({"settings": {"OCV": {"lp0": 3}, "cjwrite": {"name": "users.jpg"}, "dataY": 2}, "steps": [
                {"kind": ")") +
                player + R"(", "settings": {"OCV": {"trl": 5}, "load": {"name": ")" + (dir / "a.rec") +
                R"("}}}, {"kind": "test", "settings": {"eventType": 1003}}, "cply"]})");
        EXPECT_EQ(result.exitCode, 0) << result.err;
        const std::string seen = result.out.substr(result.out.rfind("Test::", result.out.find("mine")));
        for (const char* part : {"trl Float = 5\n", "trh Float = 7\n", "lp0 Int = 1\n", "order Int = 5\n",
                                 "dataX Int = 4\n", "users.jpg", "a Int = 1\n"})
            EXPECT_THAT(seen, HasSubstr(part));
        EXPECT_EQ(seen.find("evil"), std::string::npos) << seen;
        EXPECT_EQ(seen.find(" port "), std::string::npos) << seen;
        for (const char* part :
             {"OCV.lp0 = 3 gives way to 1 of the recording", "export.name = \"evil.ply\" of the"})
            EXPECT_THAT(result.err, HasSubstr(part));
        EXPECT_EQ(result.err.find("dataY"), std::string::npos) << result.err;
    }
}

TEST(Recording, RecordsWithoutATypeAreSkippedAndReportedOnDemand)
{
    const TempDir dir;
    const std::string name = dir / "odd.rec";
    {
        BIOfs file(name, BIOfs::Mode::Write);
        writeRecord(file,
                    Struct{{"eventType", 1001}, {"dataX", 2}, {"dataY", 2}, {"dataFormat", "CPU::u_1x16"}});
        for (int i = 0; i < 2; ++i) writeRecord(file, Struct{{"number", i}});
        writeRecord(file, Struct{{"eventType", 1003}});
    }
    const std::string run = "run \"read load.name='" + name + "' ! clast\"";
    EXPECT_THAT(runProgram(run + " -v").err,
                HasSubstr("info: step 1 (read): 2 records without \"eventType\" skipped"));
    EXPECT_THAT(runProgram(run + " --strict").err, testing::Not(HasSubstr("skipped")));
}

TEST(Inspect, SaysWhereDamageBeginsAndRecoversTheWholeRecords)
{
    const TempDir dir;
    ASSERT_EQ(runProgram("run \"" + kSource + "filesaver name=" + (dir / "run.rec") + "\"").exitCode, 0);
    const std::string whole = readFile(dir / "run.rec");
    const std::string cut = dir.write("cut.rec", whole.substr(0, 1500000));
    const auto damaged = runProgram("inspect \"" + cut + "\"");
    EXPECT_EQ(damaged.exitCode, 5);
    EXPECT_THAT(damaged.err, HasSubstr("read error; 3 whole records, damage begins at offset "));

    const auto recovered = runProgram("inspect \"" + cut + "\" --recover \"" + (dir / "ok.rec") + "\"");
    EXPECT_EQ(recovered.exitCode, 0);
    EXPECT_THAT(recovered.out, HasSubstr("3 records, "));
    EXPECT_THAT(recovered.err, HasSubstr("3 whole records, damage begins at offset "));
    EXPECT_THAT(recovered.err, HasSubstr("no end record"));
    // The recovered recording replays to its end.
    const std::uint64_t end = recordSize(Struct{{"eventType", 1003}});
    const std::string saved = readFile(dir / "ok.rec");
    EXPECT_TRUE(whole.starts_with(saved.substr(0, saved.size() - end)));
    const auto after = runProgram("inspect \"" + (dir / "ok.rec") + "\"");
    EXPECT_EQ(after.exitCode, 0);
    EXPECT_THAT(after.out, HasSubstr("4 records, " + std::to_string(saved.size()) + " bytes\n"));
    EXPECT_EQ(runProgram("run \"read load.name=" + (dir / "ok.rec") + "\"").exitCode, 0);
    EXPECT_EQ(runProgram("inspect \"" + cut + "\" --recover \"" + cut + "\"").exitCode, 2);
    EXPECT_EQ(readFile(cut).size(), 1500000U);
#ifndef _WIN32
    EXPECT_THAT(runProgram("inspect \"" + cut + "\" --recover /dev/full").err,
                HasSubstr("/dev/full: write error"));
#endif
}

TEST(Inspect, SkipsDamagedRecords)
{
    const TempDir dir;
    BIOmem recording;
    for (int i = 0; i < 5; ++i) writeRecord(recording, Struct{{"eventType", 1002}, {"number", i}});
    std::string bytes(reinterpret_cast<const char*>(recording.bytes().data()), recording.bytes().size());
    const std::size_t size = bytes.size() / 5;
    bytes[size + 8] = 7;            // the kind of the second record
    bytes[3 * size + 18] = '\xFF';  // a length in the fourth one
    const std::string file = dir.write("run.rec", bytes + "cut");
    const auto recovered =
        runProgram("inspect \"" + file + "\" --skip-damage --recover \"" + (dir / "ok.rec") + "\"");
    EXPECT_EQ(recovered.exitCode, 0);
    for (const std::size_t place : {size, 3 * size})
        EXPECT_THAT(recovered.err, HasSubstr("Read Error; " + std::to_string(size) +
                                             " bytes skipped at offset " + std::to_string(place)));
    EXPECT_THAT(recovered.err, HasSubstr("read error; 3 bytes skipped at offset "));
    EXPECT_THAT(recovered.out, HasSubstr(" bytes skipped in 3 places; no end record"));
    EXPECT_THAT(runProgram("inspect \"" + (dir / "ok.rec") + "\"").out, HasSubstr("\n4 records, "));
    EXPECT_EQ(runProgram("inspect \"" + file + "\" --skip-damage").exitCode, 2);
#ifndef _WIN32
    const auto folder = runProgram("inspect /tmp --recover \"" + (dir / "no.rec") + "\"");
    EXPECT_EQ(folder.exitCode, 5);
    EXPECT_THAT(folder.err, HasSubstr("/tmp: read error: Is a directory"));
#endif
}

struct Png
{
    int bits = 0, colourType = 0;
    std::vector<std::uint8_t> bytes;  // of 16-bit samples the high one first
};

Png readPng(const std::string& path)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) throw std::runtime_error("cannot open " + path);
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file.get());
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    Png result{png_get_bit_depth(png, info), png_get_color_type(png, info), {}};
    const std::size_t rowBytes = png_get_rowbytes(png, info);
    for (png_uint_32 y = 0; y < png_get_image_height(png, info); ++y) {
        const png_bytep row = png_get_rows(png, info)[y];
        result.bytes.insert(result.bytes.end(), row, row + rowBytes);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return result;
}

TEST(Inspect, WritesTheFramesAsPictures)
{
    const TempDir dir;
    const std::string save = "filesaver name=" + (dir / "run.rec") + "\"";
    // RGB frames; 16-bit samples; floats.
    ASSERT_EQ(runProgram("run \"cjread load.name=" + kImages + "img0000.jpg load.count=1 ! " + save).exitCode,
              0);
    ASSERT_EQ(runProgram("inspect \"" + (dir / "run.rec") + "\" --frames \"" + (dir / "rgb") + "\"").exitCode,
              0);
    const auto image = loadImage(kImages + "img0000.jpg");
    const Png frame = readPng(dir / "rgb/frame000001.png");
    ASSERT_TRUE(image && frame.colourType == PNG_COLOR_TYPE_RGB && frame.bits == 8);
    EXPECT_TRUE(std::ranges::equal(image->bytes(), frame.bytes));
    EXPECT_TRUE(std::filesystem::exists(dir / "rgb/frame000002.png"));

    // YUYV16 frames in colour: what crgb makes of them.
    const std::string yuyv = "cjread load.name=" + kImages + "img0000.jpg load.one=1 ! cyuv ! ";
    ASSERT_EQ(runProgram("run \"" + yuyv + save).exitCode, 0);
    const auto inspected =
        runProgram("inspect \"" + (dir / "run.rec") + "\" --frames \"" + (dir / "video") + "\"");
    EXPECT_THAT(inspected.out, HasSubstr("1 frames in "));
    ASSERT_EQ(runProgram("run \"" + yuyv + "crgb ! cjwrite name=" + (dir / "crgb.ppm") + "\"").exitCode, 0);
    EXPECT_TRUE(std::ranges::equal(readPng(dir / "video/frame000001.png").bytes,
                                   loadImage(dir / "crgb.ppm")->bytes()));

    Array floats(Kind::Float, 3, 1), offset(Kind::Ushort, 2, 1);
    floats.elements<float>()[0] = -1;
    floats.elements<float>()[2] = 1;
    offset.elements<std::uint16_t>()[0] = 0x1234;
    {
        BIOfs out(dir / "both.rec", BIOfs::Mode::Write);
        writeRecord(out, Struct{{"eventType", 1002}, {"data", floats}});
        writeRecord(out, Struct{{"eventType", 1002}, {"data", offset}});
    }
    runProgram("inspect \"" + (dir / "both.rec") + "\" --frames \"" + (dir / "f") + "\"");
    const Png depth = readPng(dir / "f/frame000002.png");
    EXPECT_EQ(readPng(dir / "f/frame000001.png").bytes,
              (std::vector<std::uint8_t>{0, 0, 0x80, 0, 0xFF, 0xFF}));
    EXPECT_TRUE(depth.bits == 16 && depth.colourType == PNG_COLOR_TYPE_GRAY);
    EXPECT_EQ(depth.bytes, (std::vector<std::uint8_t>{0x12, 0x34, 0, 0}));
}

// The Python reader and the program agree on the contents of a recording.
TEST(Recording, IsReadByTheExampleReader)
{
    if (runCommand("python3 --version").exitCode != 0) GTEST_SKIP() << "no python3";
    const TempDir dir;
    ASSERT_EQ(runProgram("run \"" + kSource + "filesaver name=" + (dir / "run.rec") +
                         "\" --set OCV.trl=40.5 --set \"more={\\\"Array\\\": {\\\"type\\\": \\\"Int\\\", "
                         "\\\"dims\\\": [2, 1, 1], \\\"data\\\": [1, 2]}}\"")
                  .exitCode,
              0);
    const auto python = runCommand("python3 \"" SCANSTEPS_SOURCE_DIR "/examples/read_recording.py\" \"" +
                                   (dir / "run.rec") + "\"");
    ASSERT_EQ(python.exitCode, 0) << python.err;
    std::istringstream ours(runProgram("inspect --json \"" + (dir / "run.rec") + "\"").out),
        theirs(python.out);
    int records = 0;
    for (std::string a, b; std::getline(ours, a) && std::getline(theirs, b); ++records)
        EXPECT_EQ(nlohmann::json::parse(a), nlohmann::json::parse(b));
    EXPECT_EQ(records, 6);
}

// Not on Windows, which has no shell to kill from and no pipes among its files.
#ifndef _WIN32
// The recorder's file after kill -9 holds every record but the one that was being written.
TEST(Recording, SurvivesBeingKilled)
{
    const TempDir dir;
    const std::string line =
        "\"" SCANSTEPS_BIN_DIR "/scansteps\" run \"cjread load.name=" + kImages +
        "img0000.jpg load.incr=0 ! filesaver name=" + (dir / "run.rec") +
        "\" >/dev/null 2>&1 & pid=$!; n=0; while [ $n -lt 200 ] && [ \"$(stat -c %s " + (dir / "run.rec") +
        " 2>/dev/null || echo 0)\" -lt 5000000 ]; do sleep 0.05; n=$((n+1)); done; kill -9 $pid";
    ASSERT_EQ(std::system(("sh -c '" + line + "'").c_str()), 0);
    const auto inspected =
        runProgram("inspect --recover \"" + (dir / "ok.rec") + "\" \"" + (dir / "run.rec") + "\"");
    EXPECT_EQ(inspected.exitCode, 0) << inspected.err;
    const auto size = std::filesystem::file_size(dir / "run.rec");
    EXPECT_GE(size, 5000000U);
    const auto saved = std::filesystem::file_size(dir / "ok.rec") - recordSize(Struct{{"eventType", 1003}});
    EXPECT_LT(size - saved, 1000000U);
}

TEST(Pipe, ReaderThatLeavesIsAFailedWrite)
{
    const struct
    {
        const char *step, *file, *taken, *options;
        int exitCode;
        std::vector<std::string> words;
    } cases[] = {
        {"filesaver", "pipe", "1000000", "", 4, {"step 3 (filesaver), frame ", ": write error"}},
        {"cjwrite", "pipe.ppm", "1000", "--frames 1", 0, {"can't write ", "pipe.ppm"}},
    };
    for (const auto& [step, file, taken, options, exitCode, words] : cases) {
        const TempDir dir;
        const std::string pipe = dir / file;
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        std::thread reader([&, n = taken] { runCommand("head -c " + std::string(n) + " \"" + pipe + "\""); });
        const auto result = runProgram("run \"" + kSource + step + " name=" + pipe + "\" " + options);
        reader.join();
        EXPECT_EQ(result.exitCode, exitCode) << step;
        for (const std::string& word : words) EXPECT_THAT(result.err, HasSubstr(word));
    }
}
#endif

}  // namespace
}  // namespace scansteps
