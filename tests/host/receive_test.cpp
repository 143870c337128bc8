// The command `receive` with real TCP clients: well-behaved and misbehaving ones, and the sender step.

#include "scansteps/socket.h"
#include "support/process.h"
#include "support/sanitized.h"
#include "support/test.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#else
#include <sys/resource.h>
#include <sys/stat.h>
#endif

namespace scansteps {
namespace {

#ifdef _WIN32
constexpr const char *kBegin = "\"", *kEnd = "\"";
int exitCodeOf(int status)
{
    return status;
}
void interruptProcess(int) {}
#else
// The program prints its process number first.
constexpr const char *kBegin = "echo $$; exec ", *kEnd = "";
int exitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
void interruptProcess(int process)
{
    kill(process, SIGINT);
}
#endif

// `scansteps receive` on a free port, and its messages.
class ReceiveProgram
{
  public:
    explicit ReceiveProgram(const std::string& arguments)
    {
        const std::string line =
            kBegin + ("\"" SCANSTEPS_BIN_DIR "/scansteps\" receive --port 0 " + arguments + " 2>&1") + kEnd;
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

    int port() const { return port_; }
    std::string to() const { return "sender.host=127.0.0.1 sender.port=" + std::to_string(port_); }
    /// Reads messages until one contains the text or the program ends.
    bool waitFor(const std::string& text)
    {
        char line[1000];
        while (pipe_ != nullptr && std::fgets(line, sizeof line, pipe_) != nullptr) {
            said_ += line;
            if (std::string(line).find(text) != std::string::npos) return true;
        }
        return false;
    }
    void interrupt() const { interruptProcess(std::stoi(said_)); }
    /// Peak memory so far, in bytes.
    std::ptrdiff_t maxMemory() const
    {
        const std::string status = readFile("/proc/" + std::to_string(std::stoi(said_)) + "/status");
        const auto at = status.find("VmHWM:");
        return at == std::string::npos ? 0 : std::stol(status.substr(at + 6)) * 1024;
    }
    /// Waits for the end and returns the exit code.
    int end()
    {
        waitFor("no line holds this");
        return exitCodeOf(pclose(std::exchange(pipe_, nullptr)));
    }
    const std::string& said() const { return said_; }

  private:
    std::FILE* pipe_ = nullptr;
    std::string said_;
    int port_ = 0;
};

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
    client([&](USock& socket) {  // announces 500 MB, sends none
        socket.write("\0\0\xD0\x1D\0\0\0\0\x0B\0\0\0\x01\0\0\0", 16);
        EXPECT_TRUE(receiver.waitFor("left without a record: a record is larger than --max-record"));
    });
    client([&](USock& socket) {  // a byte every 100 ms
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
    EXPECT_EQ(runProgram("run \"cjread load.name=" SCANSTEPS_SOURCE_DIR
                         "/examples/images/img0000.jpg ! filesaver name=" +
                         (dir / "sent.rec") + " ! sender " + receiver.to() + "\" --frames 2")
                  .exitCode,
              0);
    EXPECT_TRUE(receiver.waitFor("4 records in " + (dir / "run-3.rec")));
    const auto sent = recordsOf(dir / "sent.rec"), received = recordsOf(dir / "run-3.rec");
    for (std::size_t i = 1; i < 4; ++i) EXPECT_TRUE(received.at(i).equals(sent.at(i))) << i;
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
    // Numbered in order of connection, not of the first record; existing names are skipped.
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

#ifndef _WIN32
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
        double most;  // multiple of the bytes that arrived, plus a constant
    } cases[] = {
        {"array", number(12) + number(12) + number(0x2F000000) + number(1) + number(1) + number(2), 1.25},
        {"string", number(10) + number(0x2F000000), 1.25},
        {"structs", number(13) + number(13) + number(0x02000000), 1.25},
    };
    const std::string sent(64 << 20, 'x');
    for (const auto& entry : cases) {
        ReceiveProgram receiver("--once");
        const auto before = receiver.maxMemory();
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
        const auto grown = double(receiver.maxMemory() - before);
        std::printf("%s: 768 MB promised, 64 MiB sent, %.1f MiB taken\n", entry.what, grown / 1048576);
#ifndef SCANSTEPS_SANITIZED  // sanitizers use memory of their own
        EXPECT_LT(grown, entry.most * double(sent.size()) + double(16 << 20)) << entry.what;
#endif
        receiver.interrupt();
    }
}

#endif

}  // namespace
}  // namespace scansteps
