// Recording, replay, sending and receiving with the real program, over real files and TCP.

#include <nlohmann/json.hpp>

#include "images/image_file.h"
#include "scansteps/socket.h"
#include "support/process.h"
#include "support/sanitized.h"
#include "support/test.h"

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/stat.h>

#endif

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#endif

namespace scansteps {
namespace {

using namespace images;

const std::string kImages = SCANSTEPS_SOURCE_DIR "/examples/images/";
const std::string kSource = "cjread load.name=" + kImages + "img0000.jpg load.count=3 ! cyuv ! ";

// The records of the frames and of the end: the init records of two runs differ in their settings.
std::string framesOf(const std::string& path)
{
    const std::string bytes = readFile(path);
    std::uint64_t first = 0;
    std::memcpy(&first, bytes.data(), sizeof first);
    EXPECT_GT(bytes.size(), 1000000U);
    return bytes.substr(static_cast<std::size_t>(first));
}

// `scansteps receive` on a free port, with what it says.
class ReceiveProgram
{
  public:
    explicit ReceiveProgram(const std::string& arguments)
    {
        std::string line = "\"" SCANSTEPS_BIN_DIR "/scansteps\" receive --port 0 " + arguments + " 2>&1";
#ifdef _WIN32
        line = "\"" + line + "\"";
#else
        line = "echo $$; exec " + line;
#endif
        pipe_ = popen(line.c_str(), "r");
        waitFor("listening on ");
        const auto colon = said_.rfind(':');
        if (colon != std::string::npos) port_ = std::stoi(said_.substr(colon + 1));
    }
    ReceiveProgram(const ReceiveProgram&) = delete;
    ReceiveProgram& operator=(const ReceiveProgram&) = delete;
    ~ReceiveProgram()
    {
        if (pipe_ != nullptr) end();
    }

    int port() const
    {
        return port_;
    }
    std::string to() const
    {
        return "sender.host=127.0.0.1 sender.port=" + std::to_string(port_);
    }
    /// Reads what the program says until a line holds the text, or it ends.
    bool waitFor(const std::string& text)
    {
        char line[1000];
        while (pipe_ != nullptr && std::fgets(line, sizeof line, pipe_) != nullptr) {
            said_ += line;
            if (std::string(line).find(text) != std::string::npos) return true;
        }
        return false;
    }
#ifndef _WIN32
    void interrupt() const
    {
        kill(std::stoi(said_), SIGINT);
    }  // the first line is the process number
    /// The most memory it has had so far, in bytes.
    std::ptrdiff_t mostMemory() const
    {
        const std::string status = readFile("/proc/" + std::to_string(std::stoi(said_)) + "/status");
        const auto at = status.find("VmHWM:");
        return at == std::string::npos ? 0 : std::stol(status.substr(at + 6)) * 1024;
    }
#endif
    /// Waits for the end; the exit code.
    int end()
    {
        waitFor("no line holds this");
        const int status = pclose(std::exchange(pipe_, nullptr));
#ifdef _WIN32
        return status;
#else
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
    }
    const std::string& said() const
    {
        return said_;
    }

  private:
    std::FILE* pipe_ = nullptr;
    std::string said_;
    int port_ = 0;
};

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
    // Recorded again as it stands: the settings of the step are merged into the replayed init record too.
    const auto again = runProgram("run \"readd load.name=" + (dir / "run.rec") +
                                  " ! filesaver name=" + (dir / "again.rec") + "\"");
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_TRUE(framesOf(dir / "run.rec") == framesOf(dir / "again.rec"));
}

// The record printer after the player shows what the steps of a replay find.
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
            "run - --quiet --set OCV.trh=7 --set dataX=9",
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
    // What was rescued replays to a clean end.
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

TEST(Inspect, WritesTheFramesAsPictures)
{
    const TempDir dir;
    const std::string save = "filesaver name=" + (dir / "run.rec") + "\"";
    // Colours as they were read; 16-bit samples; floats.
    ASSERT_EQ(runProgram("run \"cjread load.name=" + kImages + "img0000.jpg load.count=1 ! " + save).exitCode,
              0);
    ASSERT_EQ(runProgram("inspect \"" + (dir / "run.rec") + "\" --frames \"" + (dir / "rgb") + "\"").exitCode,
              0);
    const auto image = loadImage(kImages + "img0000.jpg"), frame = loadImage(dir / "rgb/frame000001.ppm");
    ASSERT_TRUE(image && frame);
    EXPECT_TRUE(std::ranges::equal(image->bytes(), frame->bytes()));
    EXPECT_TRUE(std::filesystem::exists(dir / "rgb/frame000002.ppm"));

    ASSERT_EQ(runProgram("run \"" + kSource + save).exitCode, 0);
    const auto luma = runProgram("inspect \"" + (dir / "run.rec") + "\" --frames \"" + (dir / "luma") + "\"");
    EXPECT_THAT(luma.out, HasSubstr("4 frames in "));
    EXPECT_THAT(readFile(dir / "luma/frame000004.pgm").substr(0, 15), "P5\n640 480\n255\n");

    Array floats(Kind::Float, 3, 1);
    floats.elements<float>()[0] = -1;
    floats.elements<float>()[2] = 1;
    {
        BIOfs out(dir / "float.rec", BIOfs::Mode::Write);
        writeRecord(out, Struct{{"eventType", 1002}, {"data", floats}});
    }
    runProgram("inspect \"" + (dir / "float.rec") + "\" --frames \"" + (dir / "f") + "\"");
    EXPECT_EQ(readFile(dir / "f/frame000001.pgm"), std::string("P5\n3 1\n65535\n\0\0\x80\0\xFF\xFF", 19));
}

// The reader in Python and the program say the same of a recording.
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

TEST(Receive, SurvivesClientsThatMisbehave)
{
    const TempDir dir;
    ReceiveProgram receiver("--once --idle-timeout 0.5 --max-pause 0.5 --max-record 1M --out \"" +
                            (dir / "run.rec") + "\"");
    const auto port = std::uint16_t(receiver.port());
    const auto client = [&](auto talk) {
        USock socket("127.0.0.1", port);
        ASSERT_TRUE(socket.connected());
        talk(socket);
    };
    client([](USock&) {});
    EXPECT_TRUE(receiver.waitFor("left without a record: closed"));
    client([](USock& socket) { socket.write("GET / HTTP/1.0\r\n\r\n", 18); });
    EXPECT_TRUE(receiver.waitFor("left without a record: Read Error"));
    client([](USock& socket) { socket.write("\x40\0\0\0\0\0\0\0\x0B\0\0\0\x01\0\0\0xx", 18); });
    EXPECT_TRUE(receiver.waitFor("left without a record: the connection broke off within a record"));
    client([&](USock&) { EXPECT_TRUE(receiver.waitFor("left without a record: idle for too long")); });
    client([&](USock& socket) {  // 500 MB promised, none sent
        socket.write("\0\0\xD0\x1D\0\0\0\0\x0B\0\0\0\x01\0\0\0", 16);
        EXPECT_TRUE(receiver.waitFor("left without a record: a record is larger than --max-record"));
    });
    client([&](USock& socket) {  // a byte now and then
        std::atomic<bool> left = false;
        std::thread trickle([&] {
            try {
                while (!left) {
                    socket.write("\x40", 1);
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                }
            } catch (const char*) {
            }
        });
        EXPECT_TRUE(receiver.waitFor("left without a record: a record took too long"));
        left = true;
        trickle.join();
    });
    EXPECT_FALSE(std::filesystem::exists(dir / "run.rec"));
    client([](USock& socket) {  // one byte at a time
        BIOmem run;
        writeRecord(run, everyKind());
        writeRecord(run, Struct{{"eventType", 1003}});
        for (const std::byte& byte : run.bytes()) socket.write(&byte, 1);
    });
    EXPECT_EQ(receiver.end(), 0);
    EXPECT_EQ(runProgram("inspect \"" + (dir / "run.rec") + "\"").exitCode, 0);
}

// Not on Windows: Ctrl+C goes to every program of a console, the test included.
#ifndef _WIN32
TEST(Receive, GivesEveryRunARecordingAndEndsWhenInterrupted)
{
    const TempDir dir;
    ReceiveProgram receiver("--out \"" + (dir / "run.rec") + "\"");
    EXPECT_THAT(receiver.said(), HasSubstr("listening on 127.0.0.1:"));  // by default, this machine only
    {
        USock socket("127.0.0.1", std::uint16_t(receiver.port()));
        for (int i = 0; i < 2; ++i) {
            writeRecord(socket, everyKind());
            writeRecord(socket, Struct{{"eventType", 1003}});
        }
    }
    EXPECT_TRUE(receiver.waitFor("run-2.rec"));
    EXPECT_TRUE(readFile(dir / "run.rec") == readFile(dir / "run-2.rec"));
    EXPECT_EQ(runProgram("run \"cjread load.name=" + kImages + "img0000.jpg ! filesaver name=" +
                         (dir / "sent.rec") + " ! sender " + receiver.to() + "\" --frames 2")
                  .exitCode,
              0);
    EXPECT_TRUE(receiver.waitFor("4 records in " + (dir / "run-3.rec")));
    EXPECT_TRUE(framesOf(dir / "run-3.rec") == framesOf(dir / "sent.rec"));
    receiver.interrupt();
    EXPECT_EQ(receiver.end(), 130);
}

TEST(Receive, ServesSeveralClientsWithinItsLimits)
{
    const TempDir dir;
    dir.write("run-2.rec", "old");
    EXPECT_EQ(runProgram("receive --port 0 --out \"" + (dir / "run-2.rec") + "\"").exitCode, 2);
    EXPECT_EQ(runProgram("receive --port 0 --bind \"\"").exitCode, 2);
    ReceiveProgram receiver("--clients 3 --max-files 2 --max-total 500 --out \"" + (dir / "run.rec") + "\"");
    const auto port = std::uint16_t(receiver.port());
    const Struct record{{"eventType", 1002}, {"data", Array(Kind::Uchar, 150, 1)}};
    USock first("127.0.0.1", port);
    EXPECT_TRUE(receiver.waitFor("connected"));
    USock second("127.0.0.1", port), third("127.0.0.1", port);
    USock waiting("127.0.0.1", port);
    // In order of connection, whoever sends first; names that exist are left out.
    writeRecord(second, record);
    writeRecord(first, record);
    for (int i = 0; i < 100 && !std::filesystem::exists(dir / "run.rec"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    writeRecord(third, Struct{});
    EXPECT_TRUE(receiver.waitFor("left without a record: the limit --max-files is reached"));
    EXPECT_TRUE(receiver.waitFor("connected"));
    writeRecord(first, record);
    EXPECT_TRUE(receiver.waitFor("1 records in " + (dir / "run.rec") + "; the limit --max-total is reached"));
    EXPECT_EQ(readFile(dir / "run.rec").size(), recordSize(record));
    EXPECT_EQ(readFile(dir / "run-3.rec").size(), recordSize(record));
    EXPECT_EQ(readFile(dir / "run-2.rec"), "old");
    receiver.interrupt();
}

TEST(Receive, EndsWhileAPipeHasNoReaderAndLeavesNoEmptyRecording)
{
    const TempDir dir;
    const std::string pipe = dir / "pipe", full = dir / "full.rec";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const auto send = [](const ReceiveProgram& receiver) {
        USock socket("127.0.0.1", std::uint16_t(receiver.port()));
        writeRecord(socket, test::everyKind());
    };
    ReceiveProgram waiting("--out \"" + pipe + "\"");
    send(waiting);
    EXPECT_TRUE(waiting.waitFor("connected"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    waiting.interrupt();
    EXPECT_EQ(waiting.end(), 130);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit limited{10, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    ReceiveProgram receiver("--once --out \"" + full + "\"");
    setrlimit(RLIMIT_FSIZE, &before);
    send(receiver);
    EXPECT_TRUE(receiver.waitFor("left without a record: " + full + ": write error: File too large"));
    EXPECT_FALSE(std::filesystem::exists(full));
    EXPECT_EQ(receiver.end(), 5);
}
#endif

TEST(Receive, RunThatBreaksOffIsExitCode5AndWholeRecordsAreKept)
{
    const TempDir dir;
    ReceiveProgram receiver("--once --out \"" + (dir / "run.rec") + "\"");
    {
        USock socket("127.0.0.1", std::uint16_t(receiver.port()));
        writeRecord(socket, Struct{{"eventType", 1001}});
    }
    EXPECT_EQ(receiver.end(), 5);
    EXPECT_THAT(receiver.said(),
                HasSubstr("1 records in " + (dir / "run.rec") + "; closed before the end of the run"));
    EXPECT_EQ(runProgram("receive --port 0 --bind no.such.host.invalid").exitCode, 5);
    EXPECT_EQ(runProgram("receive").exitCode, 2);
    const Listener taken(0, "127.0.0.1");
    const std::string port = std::to_string(taken.port());
    EXPECT_THAT(runProgram("receive --port " + port).err,
                HasSubstr("cannot listen on 127.0.0.1:" + port + ": "));
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

// Memory grows with the bytes that a peer sends, not with the sizes that it announces.
TEST(Receive, TakesMemoryForBytesThatArriveOnly)
{
    const std::string record("\0\0\0\x30\0\0\0\0\x0B\0\0\0\x01\0\0\0", 16);  // 768 MiB, one entry
    const std::string key("\x65\0\0\0\x57\xF5", 6);                          // "a"
    const auto number = [](std::uint32_t value) {
        return std::string(reinterpret_cast<const char*>(&value), 4);
    };
    const struct
    {
        const char* what;
        std::string head;
        double most;  // of the bytes that arrived, besides the constant
    } cases[] = {
        {"array", number(12) + number(12) + number(0x2F000000) + number(1) + number(1) + number(2), 1.25},
        {"string", number(10) + number(0x2F000000), 1.25},
        {"structs", number(13) + number(13) + number(0x02000000), 1.25},
    };
    const std::string sent(64 << 20, 'x');
    for (const auto& entry : cases) {
        ReceiveProgram receiver("--once");
        const auto before = receiver.mostMemory();
        {
            USock socket("127.0.0.1", std::uint16_t(receiver.port()));
            const std::string start = record + key + entry.head;
            socket.write(start.data(), start.size());
            try {
                socket.write(sent.data(), sent.size());
            } catch (const char*) {
                // Invalid bytes are refused before all of them have arrived.
            }
        }
        receiver.waitFor("left without a record");
        const auto grown = double(receiver.mostMemory() - before);
        std::printf("%s: 768 MB promised, 64 MiB sent, %.1f MiB taken\n", entry.what, grown / 1048576);
#ifndef SCANSTEPS_SANITIZED  // sanitizers have memory of their own
        EXPECT_LT(grown, entry.most * double(sent.size()) + double(16 << 20)) << entry.what;
#endif
        receiver.interrupt();
    }
}

#endif

}  // namespace
}  // namespace scansteps
