// What a batch costs per job on top of the command that the job is, for pictures so small that nothing else
// counts, and how its memory grows with the number of jobs. Batches and bare commands take turns. Needs the
// program.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "../../tests/support/jpeg.h"
#include "support/ratio.h"
#include "support/scaled.h"

namespace {

using namespace scansteps;
namespace fs = std::filesystem;

constexpr int kPictures = 2000;

std::string program()
{
    return (fs::read_symlink("/proc/self/exe").parent_path() / "scansteps").string();
}

pid_t start(const std::vector<std::string>& arguments)
{
    const std::string path = program();
    std::vector<char*> words = {const_cast<char*>("scansteps")};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    pid_t pid = 0;
    if (::posix_spawn(&pid, path.c_str(), nullptr, nullptr, words.data(), environ) != 0) std::abort();
    return pid;
}

void finish(pid_t pid)
{
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || status != 0) std::abort();
}

// A folder with pictures of 64 x 48, which is left at the end. Not in memory: a journal costs what a disk
// costs.
class Pictures
{
  public:
    Pictures() : folder_(fs::temp_directory_path() / "scansteps_bench_batch"), before_(fs::current_path())
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_ / "in");
        fs::create_directories(folder_ / "out");
        fs::current_path(folder_);
        const auto bytes =
            test::encodeJpeg(bench::scaled(test::examplePhoto("photo_coffee.jpg"), 64, 48), {.quality = 90});
        for (int i = 0; i < kPictures; ++i) {
            std::ofstream(name(i), std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        }
    }
    ~Pictures()
    {
        fs::current_path(before_);
        fs::remove_all(folder_);
    }
    Pictures(const Pictures&) = delete;
    Pictures& operator=(const Pictures&) = delete;

    static std::string name(int i)
    {
        char text[32];
        std::snprintf(text, sizeof text, "in/img%04d.jpg", i);
        return text;
    }

  private:
    fs::path folder_, before_;
};

pid_t startBatch(int jobs)
{
    std::ofstream list("list.txt");
    for (int i = 0; i < jobs; ++i) list << Pictures::name(i) << "\n";
    list.close();
    fs::remove_all("state");
    return start({"batch", "cjread ! cyuv ! ccanny trl=60 trh=160 ! cjwrite ! clast", "--list", "list.txt",
                  "--out", "out/{stem}.jpg", "--frames", "1", "-j", "1", "--dir", "state", "--quiet"});
}

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void overhead(benchmark::State& state)
{
    constexpr int kTurn = 500;
    const Pictures pictures;
    std::vector<double> batch, bare, over;
    for (auto _ : state) {
        double begin = seconds();
        finish(startBatch(kTurn));
        batch.push_back((seconds() - begin) / kTurn);
        begin = seconds();
        for (int i = 0; i < kTurn; ++i) {
            const std::string name = Pictures::name(i);
            finish(start({"run",
                          "cjread load.name=" + name + " ! cyuv ! ccanny trl=60 trh=160 ! cjwrite name=out/" +
                              fs::path(name).filename().string() + " ! clast",
                          "--frames", "1", "--quiet", "--step-output", "none"}));
        }
        bare.push_back((seconds() - begin) / kTurn);
        over.push_back(batch.back() - bare.back());
        state.SetIterationTime(batch.back());
    }
    state.counters["bare_ms"] = 1e3 * bench::median(bare);
    state.counters["batch_ms"] = 1e3 * bench::median(batch);
    state.counters["overhead_ms"] = 1e3 * bench::median(over);
}
BENCHMARK(overhead)->Iterations(4)->UseManualTime()->Unit(benchmark::kMillisecond);

// The most memory of its own that a process has used so far, in MB.
double peak(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:")) return std::strtod(line.c_str() + 6, nullptr) / 1024;
    return 0;
}

void memory(benchmark::State& state)
{
    const Pictures pictures;
    double most = 0;
    for (auto _ : state) {
        const double begin = seconds();
        const pid_t pid = startBatch(int(state.range(0)));
        for (int status = 0; ::waitpid(pid, &status, WNOHANG) == 0;) {
            most = std::max(most, peak(pid));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        state.SetIterationTime(seconds() - begin);
    }
    state.counters["MB"] = most;
}
BENCHMARK(memory)->Arg(100)->Arg(kPictures)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
