// Interrupts, and standard streams that are closed, full or without a reader: with real processes, pipes and
// sockets.
#ifndef _WIN32

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scansteps/socket.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace std::chrono_literals;

const std::string kProgram = "\"" SCANSTEPS_BIN_DIR "/scansteps\" ";
const std::string kCamera = "ccap1 dataX=64 dataY=48 capture.dev_name=test:bars";

/// A program in the background.
class Background
{
  public:
    Background(const std::string& command, const std::string& out)
    {
        process_ = ::fork();
        if (process_ != 0) return;
        const std::string line = command + " >" + out + " 2>&1";
        ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        ::_exit(127);
    }
    ~Background()
    {
        if (!ended_) ::kill(process_, SIGKILL);
        exitCode(10s);
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    void signal(int number) const { ::kill(process_, number); }
    /// Returns once the program catches interrupts, after a delay in which it reaches its wait.
    void waitUntilItWaits(const std::string& mask = "SigCgt:\t") const
    {
        const std::string file = "/proc/" + std::to_string(process_) + "/status";
        for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(10ms)) {
            const std::string status = readFile(file);
            const auto caught = status.find(mask);
            if (caught != status.npos &&
                (std::stoull(status.substr(caught + mask.size()), nullptr, 16) & 1) != 0)
                break;
        }
        std::this_thread::sleep_for(300ms);
    }
    /// -1 if it does not end in time.
    int exitCode(std::chrono::milliseconds limit)
    {
        int status = 0;
        for (const auto start = std::chrono::steady_clock::now(); !ended_;) {
            ended_ = ::waitpid(process_, &status, WNOHANG) == process_;
            if (!ended_ && std::chrono::steady_clock::now() - start > limit) return -1;
            std::this_thread::sleep_for(5ms);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

  private:
    pid_t process_ = -1;
    bool ended_ = false;
};

TEST(Interrupt, EveryWaitEndsAndTheFlushIsReached)
{
    const TempDir dir;
    const std::string pipe = dir / "pipe.ppm";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const Listener silent(0, "127.0.0.1");
    const std::string port = std::to_string(silent.port());
    const struct
    {
        const char* what;
        std::string steps;
        bool read = false;  ///< the pipe is open for reading, but never read
        int signal = SIGINT;
    } cases[] = {
        {"silent camera", kCamera + "@0.01"},
        {"busy chain", kCamera + "@max ! ccanny"},
        {"terminated", kCamera + "@0.01", false, SIGTERM},
        {"hung up", kCamera + "@0.01", false, SIGHUP},
        {"receiver that does not read", kCamera + "@max ! sender port=" + port},
        {"recording without a reader", kCamera + " ! filesaver name=" + pipe},
        {"recording whose reader is busy", kCamera + " ! filesaver name=" + pipe, true},
        {"picture without a reader", kCamera + " ! cjwrite name=" + pipe},
        {"picture whose reader is busy", kCamera + "@max ! cjwrite name=" + pipe, true},
        {"player without a writer", "read load.name=" + pipe},
        {"picture without a writer", "cjread load.name=" + pipe},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const int reader = c.read ? ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK) : -1;
        {
            Background run("exec " + kProgram + "run \"" + c.steps + " ! clast\"", dir / "said");
            run.waitUntilItWaits();
            run.signal(c.signal);
            EXPECT_EQ(run.exitCode(10s), 130) << readFile(dir / "said");
            EXPECT_THAT(readFile(dir / "said"), HasSubstr("CpuLast time ="));
            EXPECT_THAT(readFile(dir / "said"), HasSubstr("interrupted after"));
        }
        ::close(reader);
    }
}

TEST(Interrupt, SecondOneEndsTheProgramSoonAndAnIgnoredOneDoesNothing)
{
    const TempDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    {
        // After the first one the program blocks on output to the full pipe.
        Background run("exec " + kProgram + "run --quiet \"" + kCamera + "@max ! ccanny\"", pipe);
        run.waitUntilItWaits();
        std::this_thread::sleep_for(500ms);
        run.signal(SIGINT);
        std::this_thread::sleep_for(100ms);
        run.signal(SIGINT);
        EXPECT_EQ(run.exitCode(2s), 130);
    }
    ::close(reader);
    Background ignoring("trap '' INT HUP; exec " + kProgram + "run --frames 60 \"" + kCamera + "\"",
                        dir / "said");
    ignoring.waitUntilItWaits("SigIgn:\t");
    ignoring.signal(SIGINT);
    ignoring.signal(SIGHUP);
    EXPECT_EQ(ignoring.exitCode(20s), 0) << readFile(dir / "said");
}

TEST(StandardStreams, ClosedFullOrWithoutAReader)
{
    const TempDir dir;
    const std::string file = dir / "a.rec", run = kProgram + "run --report \"" + (dir / "report") + "\" ";
    const std::string recorded = "\"" + kCamera + " ! filesaver name=" + file + "\" --frames 2 ";
    const std::string view = kProgram + "view --report \"" + (dir / "report") + "\" ";
    const std::string endless = "\"" + kCamera + "@max ! ccanny ! filesaver name=" + file + "\"";
    const std::string leaves =
        " | head -1; exit $(grep -o '\"exitCode\": [0-9]*' \"" + (dir / "report") + "\" | cut -d: -f2)";
    const struct
    {
        std::string command;
        int exitCode;
        const char* err;
    } cases[] = {
        {run + recorded + "1>&-", 0, "2 frames in"},
        {run + recorded + "0<&- 1>&- 2>&-", 0, ""},
        {run + recorded + "2>/dev/full", 0, ""},
        {run + recorded + ">/dev/full", 0, "warning: cannot write standard output: No space left"},
        {run + recorded + "--strict >/dev/full", 5, "error: cannot write standard output: No space left"},
        {run + endless + leaves, 5, "error: the reader of standard output has gone away"},
#ifdef SCANSTEPS_VIEWER
        {view + endless + leaves, 5, "error: the reader of standard output has gone away"},
#endif
        {run + "\"" + kCamera + " ! filesaver name=/dev/full\"", 4,
         "step 2 (filesaver), initialise: write error"},
        {kProgram + "steps >/dev/full", 5, "cannot write standard output"},
        {kProgram + "steps >&-", 5, "cannot write standard output"},
        {kProgram + "steps --no-such-option 2>&-", 2, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        std::filesystem::remove(file);
        const auto result = runCommand("( " + c.command + " )");
        EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.err));
        if (c.command.find(file) == c.command.npos) continue;
        EXPECT_EQ(runCommand(kProgram + "inspect \"" + file + "\"").exitCode, 0);
        EXPECT_THAT(readFile(dir / "report"), HasSubstr("\"frames\": "));
    }
}

}  // namespace
}  // namespace scansteps

#endif
