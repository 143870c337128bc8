// The baseline JPEG decoder to three planes, compared with TurboJPEG's accurate decoding to planes, on
// photographs of examples/images scaled to camera sizes. "ratio" is the peer's time divided by ours, both
// alternating in the same run. Without SCANSTEPS_BENCH_PEERS only our speed is measured.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "../../tests/support/jpeg.h"
#include "jpeg/decoder.h"
#include "support/scaled.h"
#ifdef SCANSTEPS_PEER_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

using scansteps::test::Image;

/// Processor time of the process in seconds, which depends less on the load of the machine than elapsed time.
double now()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

std::array<std::vector<std::uint8_t>, 3> planesFor(int width, int height)
{
    const auto luma = std::size_t(width) * std::size_t(height);
    return {std::vector<std::uint8_t>(luma), std::vector<std::uint8_t>(luma / 4),
            std::vector<std::uint8_t>(luma / 4)};
}

void ours(const std::vector<std::uint8_t>& file, std::array<std::vector<std::uint8_t>, 3>& planes)
{
    const auto decoder = std::make_unique<scansteps::jpeg::BaselineJpegDecoder>();
    int status = decoder->parseHeader(file);
    decoder->setComponents({planes[0], planes[1], planes[2]});
    status |= decoder->decode();
    if (status != 0) std::abort();
}

#ifdef SCANSTEPS_PEER_TURBOJPEG
void peer(tjhandle handle, const std::vector<std::uint8_t>& file, int width, int height,
          std::array<std::vector<std::uint8_t>, 3>& planes)
{
    std::array<unsigned char*, 3> pointers = {planes[0].data(), planes[1].data(), planes[2].data()};
    if (tjDecompressToYUVPlanes(handle, file.data(), file.size(), pointers.data(), width, nullptr, height,
                                TJFLAG_ACCURATEDCT) != 0)
        std::abort();
}
#endif

void decodePhoto(benchmark::State& state, const std::string& name, int width, int height, int quality)
{
    const Image image = scansteps::bench::scaled(scansteps::test::examplePhoto(name), width, height);
    const std::vector<std::uint8_t> file = scansteps::test::encodeJpeg(image, {.quality = quality});
    auto planes = planesFor(width, height);
    double ourSeconds = 0;
    double peerSeconds = 0;
    std::size_t runs = 0;
#ifdef SCANSTEPS_PEER_TURBOJPEG
    const std::unique_ptr<void, int (*)(void*)> handle(tjInitDecompress(), &tjDestroy);
    auto peerPlanes = planesFor(width, height);
    std::vector<double> ratios;
#endif
    for ([[maybe_unused]] const auto& iteration : state) {
        const double start = now();
        ours(file, planes);
        const double seconds = now() - start;
        state.SetIterationTime(seconds);
        ourSeconds += seconds;
        ++runs;
#ifdef SCANSTEPS_PEER_TURBOJPEG
        const double peerStart = now();
        peer(handle.get(), file, width, height, peerPlanes);
        const double other = now() - peerStart;
        peerSeconds += other;
        ratios.push_back(other / seconds);
#endif
    }
    state.counters["Mpixel/s"] = double(width) * height * double(runs) / ourSeconds / 1e6;
    state.counters["KB"] = double(file.size()) / 1e3;
#ifdef SCANSTEPS_PEER_TURBOJPEG
    if (planes != peerPlanes) state.SkipWithError("the planes differ from the peer's");
    std::nth_element(ratios.begin(), ratios.begin() + std::ptrdiff_t(ratios.size() / 2), ratios.end());
    state.counters["ratio"] = ratios[ratios.size() / 2];
    state.counters["peer_ms"] = peerSeconds / double(runs) * 1e3;
#else
    (void)peerSeconds;
#endif
}

}  // namespace

int main(int argc, char** argv)
{
    for (const char* name : {"coffee", "chelsea", "rocket", "astronaut"})
        for (const auto& [width, height] : {std::pair{640, 480}, {1920, 1088}, {3840, 2160}})
            for (const int quality : {75, 90, 95})
                benchmark::RegisterBenchmark((std::string(name) + "/" + std::to_string(width) + "x" +
                                              std::to_string(height) + "/q" + std::to_string(quality))
                                                 .c_str(),
                                             [=](benchmark::State& state) {
                                                 decodePhoto(state, std::string("photo_") + name + ".jpg",
                                                             width, height, quality);
                                             })
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
