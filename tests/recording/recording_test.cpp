// Recording, replay and the steps that move a frame between its handle and its record, with real files.

#include "scansteps/stream.h"

#include <chrono>
#include <set>
#include <thread>

#include "support/test.h"

namespace scansteps {
namespace {

Struct saveTo(const std::string& path)
{
    return {{"save", Struct{{"name", path}}}};
}
Struct loadFrom(const std::string& path)
{
    return {{"load", Struct{{"name", path}}}};
}

// A recording of `count` frames of 5 x 3 samples, with an event of the host's own in the middle.
std::string record(const TempDir& dir, int count, const std::string& name = "run.rec")
{
    const std::string path = dir / name;
    Chain chain({"filesaver"});
    chain.init(geometryOf(5, 3, saveTo(path)));
    for (int i = 1; i <= count; ++i) {
        const Array frame = countingFrame(5, 3, 1000 * i);
        chain.process(&frame, {{"number", i}});
        if (i == 2) {
            varitype own = Struct{{"eventType", 2000}, {"data", 77}};
            chain.send(own);
        }
    }
    chain.flush();
    return path;
}

TEST(FileSaver, WritesOneRecordAnEventWithItsFrame)
{
    const TempDir dir;
    const auto records = recordsOf(record(dir, 3));
    ASSERT_EQ(records.size(), 6U);
    EXPECT_TRUE(records[0].equals(
        varitype(geometryOf(5, 3, {{"eventType", 1001}, {"save", Struct{{"name", dir / "run.rec"}}}}))));
    EXPECT_TRUE(
        records[1].equals(Struct{{"eventType", 1002}, {"number", 1}, {"data", countingFrame(5, 3, 1000)}}));
    EXPECT_TRUE(records[3].equals(Struct{{"eventType", 2000}, {"data", 77}}));
    EXPECT_TRUE(records[5].equals(Struct{{"eventType", 1003}}));
}

TEST(FileSaver, ForwardsTheRecordAsItCame)
{
    const TempDir dir;
    Chain chain({"filesaver"});
    const Array frame = countingFrame(5, 3, 1000);
    for (int run = 0; run < 2; ++run) {  // a second init begins the file again
        chain.arrived.clear();
        chain.init(geometryOf(5, 3, saveTo(dir / "run.rec")));
        chain.process(&frame);
    }
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_TRUE(chain.arrived[1].record.has("handle"));
    EXPECT_FALSE(chain.arrived[1].record.has("data"));
    EXPECT_TRUE(chain.arrived[1].frame->sameShape(frame));
    EXPECT_EQ(thrownText([&] { chain.process(&frame, {{"data", frame}}); }), "[data] already found");
    chain.flush();
    EXPECT_EQ(recordsOf(dir / "run.rec").size(), 3U);
    EXPECT_EQ(thrownText([&] { chain.process(&frame); }), "write error");  // closed
}

TEST(FileSaver, LeavesTheOldRecordingAloneUntilTheRunBegins)
{
    const Struct sized = geometryOf(5, 3, {}), sizeless = {{"dataFormat", "CPU::u_1x16"}};
    Struct misfit = sized;
    misfit.remove("dataFormat");
    const struct
    {
        const char* what;
        Struct init;
        const char* then;
        bool isFlushed;
        std::size_t records;  // 0: the old recording is still there
    } cases[] = {
        {"frame", sized, "cstrip", false, 2},      {"no frame", sized, "cstrip", true, 2},
        {"given up", sized, "cstrip", false, 0},   {"no source", sizeless, "cstrip", true, 0},
        {"interrupted", sized, "cstrip", true, 0}, {"1004 of a step after it", misfit, "cbuff", true, 0},
    };
    for (const auto& [what, init, then, isFlushed, records] : cases) {
        SCOPED_TRACE(what);
        const TempDir dir;
        dir.write("old.rec", "precious");
#ifndef _WIN32
        std::filesystem::create_symlink("old.rec", dir.path() / "run.rec");  // its target is replaced
#else
        std::filesystem::rename(dir.path() / "old.rec", dir.path() / "run.rec");
#endif
        {
            Chain chain({"filesaver", then});
            Struct settings = init;
            settings.set("save", Struct{{"name", dir / "run.rec"}});
            settings.set("Buff", Struct{{"Size", 2}});
            try {
                chain.init(settings);
            } catch (const char*) {
            }
            EXPECT_EQ(readFile(dir / "run.rec"), "precious");
            const Array frame = countingFrame(5, 3, 1000);
            if (std::string(what) == "frame") chain.process(&frame);
            if (!isFlushed && records != 0) {
                EXPECT_NE(readFile(dir / "run.rec"), "precious");
            }
            chain.isInterrupted = std::string(what) == "interrupted";
            if (isFlushed) chain.flush();
        }
        const std::string now = readFile(dir / "run.rec");
        EXPECT_EQ(now == "precious" ? 0 : recordsOf(dir / "run.rec").size(), records);
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            EXPECT_EQ(entry.path().extension(), ".rec");
    }
}

TEST(FileSaver, ReportsAFileThatCannotBeWritten)
{
    const TempDir dir;
    Chain chain({"filesaver"});
    EXPECT_EQ(thrownText([&] { chain.init(geometryOf(5, 3, saveTo(dir / "no/folder"))); }), "write error");
    // Later events are reported as lost, and later steps are flushed all the same.
    varitype own = Struct{{"eventType", 2000}};
    EXPECT_EQ(thrownText([&] { chain.send(own); }), "write error");
    EXPECT_EQ(thrownText([&] { chain.flush(); }), "write error");
    EXPECT_EQ(chain.arrived.back().eventType, 1003);
    EXPECT_EQ(thrownText([&] { chain.flush(); }), "");
}

// The records that reach the end of a player's chain until the host is told to stop.
std::vector<Arrived> play(Chain& chain, Struct settings, int most = 100)
{
    chain.init(std::move(settings));
    while (most-- > 0 && chain.process() != event::kFlush)
        ;
    chain.flush();
    return chain.arrived;
}

TEST(FileRead, RepeatsTheRecordedEvents)
{
    const TempDir dir;
    const std::string path = record(dir, 3);
    Chain chain({"readd"});
    const auto arrived = play(chain, loadFrom(path));
    const auto recorded = recordsOf(path);
    std::vector<int> events;
    for (const auto& each : arrived) events.push_back(each.eventType);
    EXPECT_EQ(events, (std::vector<int>{1001, 1001, 1002, 1002, 2000, 1002, 1003}));
    for (std::size_t i = 0; i + 1 < recorded.size(); ++i)
        EXPECT_TRUE(arrived[i + 1].record.equals(recorded[i])) << i;
}

TEST(FileRead, WithoutAFileIsAnError)
{
    Chain chain({"readd"});
    EXPECT_EQ(thrownText([&] { chain.process(); }), "error file read");
    chain.init(loadFrom("no such file"));
    EXPECT_EQ(thrownText([&] { chain.process(); }), "error file read");
}

TEST(FileReader, GivesTheFramesAndEndsTheHostsRun)
{
    const TempDir dir;
    const std::string path = record(dir, 3);
    for (const char* kind : {"read", "reads"}) {
        SCOPED_TRACE(kind);
        Chain chain({kind});
        Struct settings = loadFrom(path);
        settings.set("own", 5);
        settings.set("dataX", 17);
        std::vector<Arrived> arrived;
        const std::string out = printed([&] { arrived = play(chain, settings); });
        EXPECT_EQ(out.find(path + " filename\n") != std::string::npos, std::string(kind) == "read");
        ASSERT_EQ(arrived.size(), 6U);
        // Recorded keys override the host's; others are kept.
        EXPECT_EQ(arrived[0].record["dataX"].as<int>(), 5);
        EXPECT_EQ(arrived[0].record["own"].as<int>(), 5);
        EXPECT_EQ(arrived[0].record["load"]["name"].as<std::string>(), path);
        const int frames[] = {1, 2, 4};
        for (int i = 0; i < 3; ++i) {
            const auto& each = arrived[static_cast<std::size_t>(frames[i])];
            EXPECT_EQ(each.eventType, 1002);
            EXPECT_FALSE(each.record.has("data"));
            EXPECT_EQ(each.record["number"].as<int>(), i + 1);
            EXPECT_TRUE(varitype(*each.frame).equals(countingFrame(5, 3, 1000 * (i + 1))));
        }
        EXPECT_EQ(arrived[3].eventType, 2000);
        EXPECT_EQ(arrived[5].eventType, 1003);
    }
}

TEST(FileReader, BufferTakesTheShapeOfTheRecordedFrame)
{
    const TempDir dir;
    Array rgb(Kind::Uchar, 15, 3);
    rgb.elements<std::uint8_t>()[44] = 9;
    {
        Chain chain({"filesaver"});
        Struct init = geometryOf(5, 3, saveTo(dir / "rgb.rec"));
        init.set("dataFormat", "CPU::u_1x8");
        chain.init(init);
        chain.process(&rgb);
        chain.flush();
    }
    for (const char* kind : {"read", "reads"}) {
        Chain chain({kind});
        const auto arrived = play(chain, loadFrom(dir / "rgb.rec"));
        ASSERT_EQ(arrived.size(), 3U);
        EXPECT_TRUE(varitype(*arrived[1].frame).equals(rgb));
    }
}

TEST(FileReader, MovesThePixels)
{
    const TempDir dir;
    BIOfs out(dir / "run.rec", BIOfs::Mode::Write);
    writeRecord(out, varitype(geometryOf(640, 480, {{"eventType", 1001}})));
    constexpr int kFrames = 9;
    for (int i = 0; i < kFrames; ++i)
        writeRecord(out, Struct{{"eventType", 1002}, {"data", countingFrame(640, 480, 1000 * i)}});
    out.close();
    // A few blocks of memory serve all frames, unless a later step takes one in exchange for its own.
    for (const int ahead : {0, 1}) {
        Chain chain({"reads"});
        chain.init({{"load", Struct{{"name", dir / "run.rec"}, {"ahead", ahead}}}});
        std::vector<const std::byte*> storage;
        for (int i = 0; i < kFrames; ++i) {
            chain.process();
            storage.push_back(pixelsOf(chain.arrived.back().record["handle"].as<int>()).data());
            EXPECT_TRUE(varitype(*chain.arrived.back().frame).equals(countingFrame(640, 480, 1000 * i)));
        }
        const std::set<const std::byte*> blocks(storage.begin() + 1, storage.end());
        EXPECT_LE(blocks.size(), 1U + 2 * std::size_t(ahead));
    }
}

// A file that grows while it is played, and a host that goes on after the flush.
#ifndef _WIN32  // where no one can write to a file that is being read
TEST(FileReader, ReadsAgainAtItsTurnWhatCouldNotBeReadAhead)
{
    const TempDir dir;
    const std::string whole = readFile(record(dir, 8));
    const auto cut = std::size_t(std::filesystem::file_size(dir.path() / "run.rec")) * 3 / 4;
    for (const char* kind : {"read", "reads", "readd"}) {
        SCOPED_TRACE(kind);
        dir.write("cut.rec", whole.substr(0, cut));
        Chain chain({kind});
        printed([&] {
            chain.init({{"load", Struct{{"name", dir / "cut.rec"}, {"ahead", 3}}}});
            for (int i = 0; i < 5; ++i) chain.process();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            chain.flush();
            chain.process();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            dir.write("cut.rec", whole);
            while (chain.process() != event::kFlush) {
            }
        });
        std::vector<int> numbers;
        for (const Arrived& each : chain.arrived)
            if (each.record.has("number")) numbers.push_back(each.record["number"].as<int>());
        EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
        EXPECT_TRUE(chain.notices.empty());
    }
}
#endif

TEST(FileReader, ReportsWhatIsNoRecording)
{
    const TempDir dir;
    const auto file = [&](const std::vector<Struct>& records) {
        BIOfs out(dir / "made.rec", BIOfs::Mode::Write);
        for (const Struct& each : records) writeRecord(out, each);
        return dir / "made.rec";
    };
    const Struct init = geometryOf(5, 3, {{"eventType", 1001}});
    const struct
    {
        const char* what;
        const char* kind;
        std::vector<Struct> records;
        const char* error;
    } cases[] = {
        {"nothing in it", "read", {}, "read error"},
        {"no size", "read", {{{"eventType", 1001}}}, "[dataX] not found"},
        {"nothing after init", "read", {init}, "read error"},
        {"no frame", "read", {init, {{"eventType", 1002}}}, "[data] not found"},
        {"frame that is none",
         "read",
         {init, {{"eventType", 1002}, {"data", 5}}},
         "varitype::getv() type error!"},
        {"frame of nothing",
         "reads",
         {init, {{"eventType", 1002}, {"data", Array()}}},
         "FileReaderS: \"data\" holds elements of kind Empty, no samples"},
        {"events without a type", "read", {init, {{"a", 1}}, {{"a", 2}}}, "read error"},
        {"event without a type", "reads", {init, {{"a", 1}}}, "[eventType] not found"},
        {"type that is no int", "reads", {init, {{"eventType", 2.0}}}, "varitype::getv() type error!"},
    };
    for (const auto& entry : cases) {
        const std::string path = file(entry.records);
        Chain chain({entry.kind});
        EXPECT_EQ(thrownText([&] {
                      chain.init(loadFrom(path));
                      chain.process();
                  }),
                  entry.error)
            << entry.what;
    }
    for (const char* kind : {"read", "reads"}) {
        Chain chain({kind});
        EXPECT_EQ(thrownText([&] { chain.init(loadFrom("no such file")); }), "read error");
        EXPECT_EQ(thrownText([&] { chain.process(); }), "error file read");
    }
}

TEST(FileReader, FormatThatIsNoneIsAMismatchAndTakenForFloat)
{
    const TempDir dir;
    {
        BIOfs out(dir / "run.rec", BIOfs::Mode::Write);
        writeRecord(out, Struct{{"dataX", 5}, {"dataY", 3}});
        writeRecord(out, Struct{{"eventType", 1002}, {"data", countingFrame(5, 3, 1000)}});
    }
    Chain chain({"read"});
    chain.init(loadFrom(dir / "run.rec"));
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_EQ(chain.arrived[0].eventType, 1004);
    EXPECT_EQ(chain.arrived[1].eventType, 1004);
    chain.process();
    EXPECT_TRUE(varitype(*chain.arrived.back().frame).equals(countingFrame(5, 3, 1000)));
}

TEST(Recording, RecordedAgainIsTheSameFile)
{
    const TempDir dir;
    const std::string first = record(dir, 3);
    const std::string original = readFile(first);
    // The recorded init event names the recording it came from: the file being played is not overwritten.
    {
        Chain chain({"readd", "filesaver"});
        Struct settings = loadFrom(first);
        settings.set("save", Struct{{"name", dir / "again.rec"}});
        chain.init(settings);
        EXPECT_EQ(thrownText([&] { chain.process(); }), "write error");
    }
    EXPECT_EQ(readFile(first), original);

    // With the recording under another name, the new file is identical.
    const std::string moved = dir.write("moved.rec", original);
    for (const std::vector<std::string>& kinds :
         {std::vector<std::string>{"readd", "filesaver"}, {"readd", "d2h", "h2d", "filesaver"}}) {
        Chain chain(kinds);
        Struct load = geometryOf(5, 3, loadFrom(moved));
        load.set("save", Struct{{"name", dir / "unused.rec"}});
        play(chain, load);
        EXPECT_EQ(readFile(first), original);
    }
}

TEST(HandleAndData, AreExchangedByTheSteps)
{
    const Array frame = countingFrame(5, 3, 4000);
    Chain down({"h2d"});
    down.init(geometryOf(5, 3, {}));
    down.process(&frame);
    down.process();  // without "handle" nothing changes
    EXPECT_TRUE(down.arrived[1].record.equals(Struct{{"eventType", 1002}, {"data", frame}}));
    EXPECT_TRUE(down.arrived[2].record.equals(Struct{{"eventType", 1002}}));
    EXPECT_TRUE(varitype(down.hostPixels()).equals(frame));
    EXPECT_EQ(thrownText([&] { down.process(&frame, {{"data", frame}}); }), "[data] already found");

    Chain up({"d2h"});
    up.init(geometryOf(9, 9, {}));
    up.process(nullptr, {{"data", frame}});
    EXPECT_FALSE(up.arrived[1].record.has("data"));
    EXPECT_TRUE(varitype(*up.arrived[1].frame).equals(frame));
    EXPECT_EQ(thrownText([&] { up.process(); }), "[data] not found");
    EXPECT_EQ(thrownText([&] { up.process(nullptr, {{"data", "text"}}); }), "varitype::getv() type error!");
}

TEST(CpuStrip, RemovesHandleAndVisu)
{
    const Array frame = countingFrame(5, 3, 4000);
    Chain chain({"cstrip"});
    chain.init(geometryOf(5, 3, {{"visu", 1}}));
    chain.process(&frame, {{"visu", Struct{{"a", 1}}}, {"kept", 1}});
    chain.process();
    EXPECT_TRUE(chain.arrived[0].record.has("visu"));
    EXPECT_TRUE(chain.arrived[1].record.equals(Struct{{"eventType", 1002}, {"kept", 1}}));
    EXPECT_TRUE(chain.arrived[2].record.equals(Struct{{"eventType", 1002}}));
}

}  // namespace
}  // namespace scansteps
