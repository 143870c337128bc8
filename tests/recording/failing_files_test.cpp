// The recorder on files that fail: short writes, a disk that fills up in the middle of a record, a failing
// close, a pipe without a reader. The system calls are replaced in this program; they work as usual until a
// test arms them.
#ifndef _WIN32
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "scansteps/stream.h"

#include "support/test.h"

namespace {
struct Plan
{
    std::size_t maxAtOnce = SIZE_MAX;  // bytes that one write takes
    std::size_t room = SIZE_MAX;       // bytes that the disk still has
    int closeError = 0;
    int writeCalls = 0;
};
thread_local Plan* armed = nullptr;

template <class Function>
Function next(const char* name, Function)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::size_t allowed(std::size_t length)
{
    ++armed->writeCalls;
    return std::min({length, armed->maxAtOnce, armed->room});
}

ssize_t took(ssize_t done)
{
    if (done > 0 && armed->room != SIZE_MAX) armed->room -= std::size_t(done);
    return done;
}
}  // namespace

extern "C" {
ssize_t write(int file, const void* bytes, size_t length)
{
    static const auto real = next("write", &write);
    if (armed == nullptr) return real(file, bytes, length);
    const std::size_t part = allowed(length);
    if (part == 0 && length != 0) return errno = ENOSPC, -1;
    return took(real(file, bytes, part));
}

ssize_t writev(int file, const iovec* parts, int count)
{
    static const auto real = next("writev", &writev);
    if (armed == nullptr) return real(file, parts, count);
    std::size_t length = 0;
    for (int i = 0; i < count; ++i) length += parts[i].iov_len;
    const std::size_t part = allowed(length);
    if (part == length) return took(real(file, parts, count));
    if (part == 0) return errno = ENOSPC, -1;
    std::string cut;
    for (int i = 0; i < count; ++i) cut.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    static const auto realWrite = next("write", &write);
    return took(realWrite(file, cut.data(), part));
}

int close(int file)
{
    static const auto real = next("close", &close);
    const int result = real(file);
    if (armed == nullptr || armed->closeError == 0) return result;
    return errno = armed->closeError, -1;
}
}

namespace scansteps {
namespace {

class Armed
{
  public:
    explicit Armed(Plan& plan) { armed = &plan; }
    ~Armed() { armed = nullptr; }
};

Struct initFor(const std::string& path)
{
    // Only calls of this thread are replaced.
    return geometryOf(40, 30, {{"save", Struct{{"name", path}}}, {"write", Struct{{"behind", 0}}}});
}

// The error of each event of a run of three frames, "" for none.
std::vector<std::string> recordRun(const std::string& path, Plan plan, Chain& chain)
{
    const Armed now(plan);
    std::vector<std::string> errors{thrownText([&] { chain.init(initFor(path)); })};
    for (int i = 0; i < 3; ++i) {
        const Array frame = countingFrame(40, 30, i);
        errors.push_back(thrownText([&] { chain.process(&frame); }));
    }
    errors.push_back(thrownText([&] { chain.flush(); }));
    return errors;
}

const std::vector<std::string> kNoErrors(5);

TEST(FailingFiles, WritesThatAreCutShortAreContinued)
{
    const TempDir dir;
    Chain chain({"filesaver"});
    ASSERT_EQ(recordRun(dir / "run.rec", {}, chain), kNoErrors);
    const std::string whole = readFile(dir / "run.rec");
    for (const std::size_t most : {1U, 7U, 16U, 100U, 2000U, 2450U}) {
        EXPECT_EQ(recordRun(dir / "run.rec", {most}, chain), kNoErrors) << most;
        EXPECT_TRUE(readFile(dir / "run.rec") == whole) << most;
    }
}

// Wherever the disk fills up, events that do not fit are errors, and the file holds the others.
TEST(FailingFiles, DiskThatFillsUpAnywhereLeavesWholeRecords)
{
    const TempDir dir;
    Chain chain({"filesaver"});
    recordRun(dir / "run.rec", {}, chain);
    const std::size_t size = readFile(dir / "run.rec").size();
    for (std::size_t room = 0; room < size; room += room < 300 ? 1 : 37) {
        for (const std::size_t most : {SIZE_MAX, std::size_t{500}}) {
            std::filesystem::remove(dir / "run.rec");
            const auto errors = recordRun(dir / "run.rec", {most, room}, chain);
            std::size_t written = 0;
            for (const std::string& error : errors) {
                EXPECT_TRUE(error.empty() || error == "write error") << error;
                written += error.empty();
            }
            ASSERT_LT(written, errors.size()) << room;
            EXPECT_EQ(errors.back(), "write error");  // nothing after the failure is written or lost silently
            EXPECT_EQ(chain.notices.back().file, dir / "run.rec");
            EXPECT_EQ(chain.notices.back().reason, "No space left on device");
            ASSERT_EQ(recordsOf(dir / "run.rec").size(), written) << room;
            EXPECT_EQ(chain.arrived.back().eventType, 1003);  // the later steps are flushed
        }
    }
}

// An interrupted close has closed the file.
TEST(FailingFiles, CloseThatFailsIsAWriteError)
{
    for (const int error : {EIO, ENOSPC, EDQUOT, EINTR}) {
        const TempDir dir;
        Chain chain({"filesaver"});
        Plan plan;
        plan.closeError = error;
        EXPECT_EQ(recordRun(dir / "run.rec", plan, chain),
                  (std::vector<std::string>{"", "", "", "", error == EINTR ? "" : "write error"}));
        EXPECT_EQ(chain.arrived.back().eventType, 1003);
        // Reported once: later events find no open file.
        EXPECT_EQ(thrownText([&] { chain.flush(); }), "");
    }
}

TEST(FailingFiles, OneCallOfTheSystemARecord)
{
    const TempDir dir;
    Chain chain({"filesaver"});
    chain.init(initFor(dir / "run.rec"));
    Plan plan;
    const Armed now(plan);
    const Array frame = countingFrame(40, 30, 1);
    for (int i = 0; i < 10; ++i) chain.process(&frame);
    EXPECT_EQ(plan.writeCalls, 10);
}

TEST(FailingFiles, PipeWhoseReaderHasGoneIsAWriteErrorAndNoSignal)
{
    const TempDir dir;
    const std::string path = dir / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::string got(1000, '\0');
    std::thread reader([&] {
        const int file = ::open(path.c_str(), O_RDONLY);
        got.resize(std::size_t(std::max<ssize_t>(0, ::read(file, got.data(), got.size()))));
        ::close(file);
    });
    Chain chain({"filesaver"});
    chain.init(initFor(path));
    reader.join();
    const Array frame = countingFrame(40, 30, 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(thrownText([&] { chain.process(&frame); }), "write error");
    EXPECT_EQ(thrownText([&] { chain.flush(); }), "write error");
    EXPECT_EQ(chain.arrived.back().eventType, 1003);
    BIOmem in(std::as_bytes(std::span(got)));
    EXPECT_EQ(readRecord(in)["eventType"].as<int>(), 1001);
    // No signal is left pending or blocked.
    sigset_t pending, blocked;
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

}  // namespace
}  // namespace scansteps
#endif
