// Recording and replay of 640 × 480 frames of 16-bit samples, compared with plain loops of system calls for
// the same bytes in the same folder, alternating in one run. 128 frames per turn; every turn creates a new
// file.
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/stream.h"
#include "scansteps/texture.h"
#include "support/ratio.h"

namespace scansteps {
namespace {

constexpr int kFrames = 128;
constexpr double kPixels = 640.0 * 480.0;

std::string place(const char* name)
{
    const bool memory = std::filesystem::exists("/dev/shm");
    return ((memory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path()) / name)
        .string();
}

struct Host
{
    Host()
    {
        fillFreeHandles(table);
        installHandles(&table);
        frame = createTexture(format::kU1x16, 640, 480);
        for (auto& sample : pixelsOf(int(frame->handle)).elements<std::uint16_t>())
            sample = std::uint16_t(&sample - static_cast<std::uint16_t*>(nullptr));
    }
    ~Host() { frame.reset(); }
    HandleTable table;
    std::unique_ptr<CTexture> frame;
};

void recordRun(cChain& saver, const std::string& path, int handle)
{
    varitype init = Struct{{"dataX", 640},
                           {"dataY", 480},
                           {"dataFormat", "CPU::u_1x16"},
                           {"eventType", 1001},
                           {"save", Struct{{"name", path}}}};
    saver.dispatch(init);
    varitype process = Struct{{"eventType", 1002}, {"handle", handle}};
    for (int i = 0; i < kFrames; ++i) saver.dispatch(process);
}

// The bytes of one frame's records before its pixels.
std::vector<std::byte> headerOfFrame()
{
    BIOmem bytes;
    writeRecord(bytes, Struct{{"data", Array(Kind::Ushort, 640, 480)}, {"eventType", 1002}});
    return {bytes.bytes().begin(), bytes.bytes().end() - 614400};
}

void record(benchmark::State& state)
{
    const Host host;
    const auto saver = plugin::createStep("filesaver");
    const std::string ours = place("scansteps_bench_a.rec"), peers = place("scansteps_bench_b.rec");
    const auto header = headerOfFrame();
    const Array& pixels = pixelsOf(int(host.frame->handle));
    bench::compare(
        state, kFrames * kPixels, "of_writev", [&] { recordRun(*saver, ours, int(host.frame->handle)); },
        [&] {
            const int file = ::open(peers.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
            const iovec parts[] = {{const_cast<std::byte*>(header.data()), header.size()},
                                   {const_cast<std::byte*>(pixels.data()), pixels.byteSize()}};
            for (int i = 0; i < kFrames; ++i)
                if (::writev(file, parts, 2) < 0) std::abort();
            ::close(file);
        });
    std::filesystem::remove(ours);
    std::filesystem::remove(peers);
}

void replay(benchmark::State& state)
{
    const Host host;
    const std::string path = place("scansteps_bench_c.rec");
    {
        const auto saver = plugin::createStep("filesaver");
        recordRun(*saver, path, int(host.frame->handle));
    }
    const auto reader = plugin::createStep("reads");
    varitype init = Struct{{"eventType", 1001}, {"load", Struct{{"name", path}}}};
    const std::size_t size = headerOfFrame().size() + 614400;
    std::vector<std::byte> buffer(size);
    const auto first = std::filesystem::file_size(path) - kFrames * size;
    bench::compare(
        state, kFrames * kPixels, "of_read",
        [&] {
            reader->dispatch(init);
            for (int i = 0; i < kFrames; ++i) {
                varitype process = Struct{{"eventType", 1002}};
                reader->dispatch(process);
            }
        },
        [&] {
            const int file = ::open(path.c_str(), O_RDONLY);
            if (::read(file, buffer.data(), first) < 0) std::abort();
            for (int i = 0; i < kFrames; ++i)
                if (::read(file, buffer.data(), size) != ssize_t(size)) std::abort();
            ::close(file);
        });
    std::filesystem::remove(path);
}

BENCHMARK(record)->Iterations(41)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(replay)->Iterations(41)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
